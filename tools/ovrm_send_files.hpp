// ovrm_send_files.hpp - whole files in memory, and the directory of this run's own.
#pragma once

#include <string>

namespace ovrm_send {

// Standard input, output and error that the caller has closed are taken: nothing that is opened
// later gets their numbers. Standard input can then not be read.
void claim_standard_files();

// Reads a file, or standard input for "-", to its end. Returns errno, 0 for success.
int read_file(const std::string& path, std::string& out);

// A directory that only its owner can enter, with the mail's copies of this run; TMPDIR names it
// from now on. It goes with all it holds. Where none can be made, the path is empty and TMPDIR
// stays.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(const char* name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace ovrm_send
