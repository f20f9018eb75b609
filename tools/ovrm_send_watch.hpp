// ovrm_send_watch.hpp - a thread beside the run: the dialogue and a progress line while a send
// waits, and an orderly end on a signal.
#pragma once

#include <csignal>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "ovrm_send_log.hpp"

namespace ovrm_send {

// The library has no callbacks, so the watcher looks at what a send leaves visible: the mail log,
// the size of the working file while it is composed, and the bytes that the server's system has
// acknowledged on the connection. SIGINT, SIGTERM and SIGHUP end the command after removing the
// working files and the temporary directory, which hold the mail in the clear.
class Watch {
public:
    // Blocks the three signals in the calling thread, and so in the threads it starts.
    //   temporary_directory  removed when a signal ends the command; may be empty
    explicit Watch(std::string temporary_directory);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Between the two a send runs, and `log` belongs to the watcher.
    //   follow           read the log all the time, not only at a signal
    //   estimated_bytes  size of the mail, 0 for no progress line
    void begin(LogReader& log, bool follow, std::uint64_t estimated_bytes);
    void end();

private:
    void run();
    void look();
    void end_on_signal();
    const char* fate_of_mail();
    void show_progress();
    void clear_progress();

    const std::string temporary_directory_;
    std::mutex mutex_; /* guards the next five */
    LogReader* log_ = nullptr;
    bool follow_ = false;
    std::uint64_t estimated_bytes_ = 0;
    bool has_begun_ = false;
    bool shown_ = false;
    sigset_t signals_{};
    sigset_t previous_{};
    int signal_fd_ = -1;
    int stop_fd_ = -1;
    std::thread thread_;
};

}  // namespace ovrm_send
