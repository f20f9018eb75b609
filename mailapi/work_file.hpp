// work_file.hpp - owner of one working file: its name, its descriptor, and the duty to delete it.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

#include "common/unique_fd.hpp"

namespace ovrmail::mailapi {

inline constexpr std::size_t kPathSize = 1025;

class WorkFile {
public:
    WorkFile() noexcept = default;
    WorkFile(const WorkFile&) = delete;
    WorkFile& operator=(const WorkFile&) = delete;
    ~WorkFile() { discard(); }

    // Forms "<dir>/<prefix><pid>-<thread>". False when the name is longer than 1,024 characters.
    [[nodiscard]] bool name(const char* dir, const char* prefix, pid_t pid) noexcept;
    // Creates the named file and opens it to read and write. It is always a new file: an existing
    // one of that name is deleted first. False with errno.
    [[nodiscard]] bool open() noexcept;

    // Check that everything was written. False with errno: some file systems (NFS, FUSE, quotas)
    // report a full disk only when a file is closed. settle() leaves the file open.
    [[nodiscard]] bool settle() noexcept;
    [[nodiscard]] bool close() noexcept;
    // Closes and deletes; errno is kept.
    void discard() noexcept;

    [[nodiscard]] int fd() const noexcept { return fd_.get(); }
    [[nodiscard]] const char* path() const noexcept { return path_.data(); }

private:
    std::array<char, kPathSize> path_{};
    common::UniqueFd fd_;
    bool exists_ = false;
};

}  // namespace ovrmail::mailapi
