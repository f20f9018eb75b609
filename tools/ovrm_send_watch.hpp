// ovrm_send_watch.hpp - a thread beside the send: progress line, and an orderly end on a signal.
#pragma once

#include <csignal>
#include <cstdint>
#include <thread>

namespace ovrm_send {

// The library has no callbacks, so the watcher looks at what the send leaves visible: the size of
// the working file while it is composed, and the bytes that the server's system has acknowledged
// on the connection. SIGINT, SIGTERM and SIGHUP end the command after removing the working files,
// which hold the mail in the clear.
class Watch {
public:
    // estimated_bytes: size of the mail, 0 for no progress line. Blocks the three signals in the
    // calling thread, and so in the threads it starts.
    explicit Watch(std::uint64_t estimated_bytes);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    void run();
    void end_on_signal();
    void show();

    std::uint64_t estimated_bytes_;
    bool shown_ = false;
    sigset_t signals_{};
    sigset_t previous_{};
    int signal_fd_ = -1;
    int stop_fd_ = -1;
    std::thread thread_;
};

}  // namespace ovrm_send
