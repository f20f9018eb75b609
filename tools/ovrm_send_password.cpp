// ovrm_send_password.cpp - reads a password without leaving copies of it, and warns of the ways in
// which it can be read by others: a file that they can read, a mechanism that sends it in the
// clear.
#include "ovrm_send_password.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "ovrm_send_server.hpp"
#include "ovrm_send_show.hpp"

namespace ovrm_send {
namespace {

constexpr std::size_t kLongest = std::size_t{4} * MAIL_ACCOUNT_MAX; /* bytes, to tell its length */

bool fail(const std::string& what, const std::string& why) {
    complain(what + ": " + why);
    return false;
}

// The first line of the file, or as much of it as fits.
bool read_first_line(const std::string& path, std::string& out) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return fail(path, std::strerror(errno));
    struct stat status {};
    if (fstat(fd, &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        warn(path + " can be read by others than its owner");
    std::array<char, kLongest> bytes{};
    const ssize_t got = read(fd, bytes.data(), bytes.size());
    const int error = errno;
    close(fd);
    if (got < 0) return fail(path, std::strerror(error));
    const std::string_view line(bytes.data(), static_cast<std::size_t>(got));
    out = line.substr(0, line.find_first_of("\r\n"));
    explicit_bzero(bytes.data(), bytes.size());
    return true;
}

// The environment of a process can be read as long as it runs: the value is wiped there too.
bool take_variable(const std::string& name, std::string& out) {
    char* const value = std::getenv(name.c_str());
    if (value == nullptr) return fail(name, "not in the environment");
    out = value;
    explicit_bzero(value, out.size());
    return true;
}

}  // namespace

bool read_password(const Options& options, std::string& password) {
    if (prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0)
        return fail("core dumps cannot be switched off", std::strerror(errno));
    password.reserve(kLongest); /* one place, which is wiped */
    return options.password_variable ? take_variable(*options.password_variable, password)
                                     : read_first_line(*options.password_file, password);
}

void wipe(std::string& secret) { explicit_bzero(secret.data(), secret.size()); }

void warn_of_clear_password(const Options& options) {
    constexpr const char* kWay = ": use a relay on this host, ovrmail-relay(7)";
    if ((options.mechanisms & (MAIL_MECH_PLAIN | MAIL_MECH_LOGIN)) != 0 &&
        !is_loopback(options.server))
        warn("PLAIN and LOGIN send the password in the clear to " + options.server + kWay);
    if (options.pop && !is_loopback(options.pop->host))
        warn("POP3 sends the password in the clear to " + options.pop->host + kWay);
}

}  // namespace ovrm_send
