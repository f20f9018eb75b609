// compose.hpp - messages for the clients that leave composing to their caller.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "client.hpp"

namespace bench {

// Hands a whole message in wire form (CR LF, dots doubled when `double_dots` is set) to `put`,
// piece by piece: multipart/mixed, attachments in base64, the file read in blocks.
void compose(const Mail& mail, bool double_dots, const std::function<void(std::string_view)>& put);

// The same in a file that lies in memory, dots as they are; the caller closes it.
std::FILE* compose_file(const Mail& mail);

// The same in one string, dots doubled.
std::string compose(const Mail& mail);

}  // namespace bench
