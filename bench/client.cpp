// client.cpp - see client.hpp. Times are taken inside the process, around the sends alone; memory
// is the high-water mark of the process (or of the greatest child, for clients run as commands).
#include "client.hpp"

#include <iconv.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

namespace bench {
namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), {}};
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct Usage {
    double user = 0;
    double sys = 0;
    static Usage now() {
        Usage sum;
        for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
            rusage usage{};
            ::getrusage(who, &usage);
            sum.user += seconds(usage.ru_utime);
            sum.sys += seconds(usage.ru_stime);
        }
        return sum;
    }
};

// ru_maxrss of the process itself would include its parent's size before exec; VmHWM does not.
long peak_kib() {
    std::ifstream status("/proc/self/status");
    long peak = 0;
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) peak = std::stol(line.substr(6));
    }
    rusage children{};
    ::getrusage(RUSAGE_CHILDREN, &children);
    return std::max(peak, children.ru_maxrss);
}

std::string to_iso2022(const std::string& body) {
    const iconv_t converter = ::iconv_open("ISO-2022-JP", "SJIS");
    std::string out(body.size() * 3 + 16, '\0');
    char* from = const_cast<char*>(body.data());
    char* to = out.data();
    std::size_t from_left = body.size();
    std::size_t to_left = out.size();
    const auto failed = ::iconv(converter, &from, &from_left, &to, &to_left) == std::size_t(-1);
    ::iconv(converter, nullptr, nullptr, &to, &to_left);
    ::iconv_close(converter);
    if (failed) throw std::runtime_error("body is not Shift_JIS");
    out.resize(out.size() - to_left);
    return out;
}

}  // namespace

std::vector<std::string> Mail::recipient_list() const {
    std::vector<std::string> list;
    std::istringstream in(recipients);
    for (std::string one; std::getline(in, one, ',');) list.push_back(one);
    return list;
}

std::string date_field() {
    char text[64];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    std::strftime(text, sizeof text, "Date: %a, %d %b %Y %H:%M:%S %z", &local);
    return text;
}

std::string Mail::wire_body() const {
    std::string lines;
    for (const char byte : japanese ? to_iso2022(body) : body) {
        if (byte == '\n') lines += '\r';
        lines += byte;
    }
    return lines;
}

int run(int argc, char** argv, const std::function<void(const Mail&)>& send) {
    try {
        std::map<std::string, std::string> option;
        for (int i = 1; i + 1 < argc; i += 2) option[argv[i]] = argv[i + 1];
        Mail mail;
        mail.port = std::stoi(option.at("--port"));
        mail.sender = option.at("--from");
        mail.recipients = option.at("--to");
        mail.subject = option.at("--subject");
        mail.body = slurp(option.at("--body"));
        mail.japanese = option["--charset"] == "sjis";
        mail.attachment = option["--attach"];
        const long count = std::stol(option.at("--count"));
        const long warm = option["--warm"].empty() ? 0 : std::stol(option["--warm"]);

        for (long i = 0; i < warm; ++i) send(mail);
        const Usage before = Usage::now();
        const auto start = std::chrono::steady_clock::now();
        auto begun = start;
        std::chrono::duration<double> slowest{};
        for (long i = 0; i < count; ++i) {
            send(mail);
            const auto now = std::chrono::steady_clock::now();
            slowest = std::max<std::chrono::duration<double>>(slowest, now - begun);
            begun = now;
        }
        const std::chrono::duration<double> wall = begun - start;
        const Usage after = Usage::now();
        std::printf(
            "{\"count\": %ld, \"wall_s\": %.9f, \"slowest_s\": %.9f, \"user_s\": %.6f, "
            "\"sys_s\": %.6f, \"peak_kib\": %ld}\n",
            count, wall.count(), slowest.count(), after.user - before.user, after.sys - before.sys,
            peak_kib());
        return 0;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "%s: %s\n", argv[0], problem.what());
        return 1;
    }
}

}  // namespace bench
