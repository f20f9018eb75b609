// send_message.cpp - sends a message that a MIME library or another program has composed, to each
// of its recipients alone. The message is read from standard input. Usage: send_message SERVER PORT
// FROM TO... <MESSAGE
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <ovrmail.hpp>

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    const std::string message(std::istreambuf_iterator<char>(std::cin), {});
    const ovrmail::Server server{argv[1], std::atoi(argv[2])};
    int failed = 0;
    for (int i = 4; i < argc; ++i) {
        const ovrmail::Outcome sent = ovrmail::send_message(message, server, argv[3], {argv[i]});
        std::printf("%s: %s\n", argv[i], sent.text().c_str());
        if (!sent) ++failed;
    }
    return failed == 0 ? 0 : 1;
}
