// msmtp.cpp - msmtp, a process per mail. The message comes composed, from a memory file.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "compose.hpp"

namespace {

void deliver(const bench::Mail& mail) {
    std::FILE* const file = bench::compose_file(mail);
    std::vector<std::string> words = {"msmtp",
                                      "--host=" + mail.host,
                                      "--port=" + std::to_string(mail.port),
                                      "--from=" + mail.sender,
                                      "--auth=off",
                                      "--tls=off",
                                      "--"};
    for (const std::string& one : mail.recipient_list()) words.push_back(one);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ::fileno(file), STDIN_FILENO);
    pid_t child = 0;
    int status = -1;
    if (::posix_spawnp(&child, "msmtp", &actions, nullptr, arguments.data(), environ) == 0)
        ::waitpid(child, &status, 0);
    ::posix_spawn_file_actions_destroy(&actions);
    std::fclose(file);
    if (status != 0) throw std::runtime_error("msmtp failed");
}

}  // namespace

int main(int argc, char** argv) { return bench::run(argc, argv, deliver); }
