// limit.cpp - the limit no client passes: a message composed beforehand, sent from memory over the
// same unpipelined dialogue, one send and one recv per exchange.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

#include "client.hpp"
#include "compose.hpp"

namespace {

class Connection {
public:
    explicit Connection(const bench::Mail& mail) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        const int on = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = ::htons(static_cast<std::uint16_t>(mail.port));
        ::inet_pton(AF_INET, mail.host.c_str(), &address.sin_addr);
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("connect");
    }
    ~Connection() { ::close(fd_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void exchange(std::string_view text) {
        while (!text.empty()) {
            const ssize_t sent = ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
            if (sent <= 0) throw std::runtime_error("send");
            text.remove_prefix(static_cast<std::size_t>(sent));
        }
        char reply[1024];  // the sink answers in one piece
        const ssize_t got = ::recv(fd_, reply, sizeof reply, 0);
        if (got <= 0 || reply[0] > '3') throw std::runtime_error("refused");
    }

private:
    int fd_;
};

void deliver(const bench::Mail& mail) {
    static const std::string message = bench::compose(mail) + "\r\n.\r\n";
    Connection server(mail);
    server.exchange("");
    server.exchange("EHLO limit\r\n");
    server.exchange("MAIL FROM:<" + mail.sender + ">\r\n");
    for (const std::string& one : mail.recipient_list())
        server.exchange("RCPT TO:<" + one + ">\r\n");
    server.exchange("DATA\r\n");
    server.exchange(message);
    server.exchange("QUIT\r\n");
}

}  // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, deliver); }
