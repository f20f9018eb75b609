// send.cpp - a Japanese text with files, and what to do when it was not sent.
// Usage: send SERVER FROM TO [PORT [FILE...]]
#include <cstdio>
#include <cstdlib>
#include <ovrmail.hpp>

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    ovrmail::Mail mail{argv[2], {argv[3]}, "ディスク使用量", "90 % を超えました。"};
    for (int i = 5; i < argc; ++i) mail.attach(argv[i]);
    ovrmail::Server server{argv[1]};
    if (argc > 4) server.port = std::atoi(argv[4]);
    const ovrmail::Outcome sent = ovrmail::send(mail, server);
    std::printf("%s\n", sent.text().c_str());
    if (sent) return 0;
    const bool repeat = sent.temporary() && !sent.may_have_been_sent();
    return repeat ? 75 : 1;
}
