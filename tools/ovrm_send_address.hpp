// ovrm_send_address.hpp - addresses as people write them, taken apart for the library, which takes
// them bare.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ovrm_send {

struct Address {
    std::string name;  // UTF-8, without quotes; empty: none was given
    std::string mailbox;
};
using Addresses = std::vector<Address>;

// Appends the addresses of a list: "ann@example.com", "Ann Bee <ann@example.com>" or
// "\"Bee, Ann\" <ann@example.com>" (RFC 5322 3.4, without comments and groups), parted by commas.
// Returns what is wrong; empty when all could be taken apart for certain.
std::string read_addresses(std::string_view list, Addresses& out);

// The bare addresses.
std::vector<std::string> mailboxes(const Addresses& addresses);

}  // namespace ovrm_send
