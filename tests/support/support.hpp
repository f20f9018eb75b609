// support.hpp - what every test may use: temporary directories, whole files, open descriptors.
#pragma once

#include <string>
#include <string_view>

namespace support {

// A directory of its own, removed with all it holds at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }

private:
    std::string path_;
};

void write_file(const std::string& path, std::string_view bytes);
std::string read_file(const std::string& path);
int open_descriptors();

}  // namespace support
