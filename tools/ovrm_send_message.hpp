// ovrm_send_message.hpp - --utf8 and --html: a whole message, composed with GMime.
#pragma once

#include <optional>
#include <string>

#include "ovrm_send_address.hpp"
#include "ovrm_send_options.hpp"

namespace ovrm_send {

// Why no message can be composed: the command was built without GMime, or GMime is not installed.
// Empty: one can.
std::string composer_problem();

// What a message is composed of, beside the options.
struct Letter {
    std::string text;                // UTF-8; with html: the same for readers that show no HTML
    std::optional<std::string> html; /* UTF-8 */
};

// The message with the sender, subject and attachments of the options, in lines that end in LF.
// Returns why it cannot be composed (a file that cannot be read); nothing: `message` holds it.
std::optional<ovrmail::Outcome> compose_message(const Options& options, const Letter& letter,
                                                const Addresses& to, std::string& message);

}  // namespace ovrm_send
