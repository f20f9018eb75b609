// result.hpp - result codes of the SMTP client.
#pragma once

#include <cstdint>

namespace ovrmail::smtp {

enum Result : std::int32_t {
    kOk = 0,
    kNoMechanism = 2,  // SMTP AUTH wanted, but HELO only or no mechanism in common
    kAuthRefused = 3,  // every mechanism in common was refused
    kSocket = -1,      // socket failed
    kConnect = -2,     // connect failed
    kSend = -3,        // send failed
    kReceive = -4,     // receiving failed, or the server closed the connection
    kName = -5,        // server name not resolved, or no local host name
    kTimeOut = -6,     // time budget spent
    kHeloRefused = -21,
    kMailRefused = -22,  // MAIL FROM refused, or the sender does not fit the command
    kRcptRefused = -23,  // a RCPT TO refused, or a recipient is too long
    kDataRefused = -24,  // DATA not answered with 3xx
    kEndRefused = -25,   // end of data refused
    kGreetingRefused = -26,
    kResetRefused = -27,
};

}  // namespace ovrmail::smtp
