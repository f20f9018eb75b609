// A user's program in C++: SERVER FROM TO PORT.
#include <cstdio>
#include <cstdlib>
#include <ovrmail.hpp>

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    const ovrmail::Server server{argv[1], std::atoi(argv[4])};
    const ovrmail::Outcome sent = ovrmail::send({argv[2], {argv[3]}, "C++", "From C++."}, server);
    if (!sent) std::puts(sent.text().c_str());
    return sent ? 0 : 1;
}
