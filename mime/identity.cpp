// identity.cpp - SMTP_makeDate, SMTP_makeBoundary, SMTP_MakeMsgId, SMTP_makeid: date and names of
// a message (RFC 822 sections 4.6.1 and 5, RFC 2046 sections 5.1.1 and 5.2.2).
//
// Called for the header of every mail and piece. Owns g_host_name and g_host_id, the host name and
// host id of a Message-Id, which are determined once and then kept for the life of the process.
#include "mime/identity.hpp"

#include <sys/time.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "common/paths.hpp"
#include "common/text.hpp"
#include "log/handles.hpp"
#include "log/trace_scope.hpp"
#include "mime.h"
#include "mime/fields.hpp"
#include "mime/result.hpp"
#include "smtp.h"

namespace ovrmail::mime {
namespace {

constexpr std::array<const char*, 7> kWeekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<const char*, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr std::size_t kResolverLine = 1024;
constexpr std::string_view kSpace = " \t\n\v\f\r";

std::array<char, kHostSize> g_host_name{};
unsigned g_host_id = 0;
bool g_host_id_known = false;

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

// Removes the next word from the line and returns it, at most one field of it.
std::string_view next_word(std::string_view& line) noexcept {
    line.remove_prefix(std::min(line.find_first_not_of(kSpace), line.size()));
    const std::size_t size = std::min(line.find_first_of(kSpace), line.size());
    const std::string_view word = line.substr(0, size);
    line.remove_prefix(size);
    return word.substr(0, kFieldSize - 1);
}

// Appends a dot and the domain of the first "domain" line. False without such a line; "search"
// lines are not used.
bool append_domain(std::span<char> name) noexcept {
    const std::unique_ptr<std::FILE, CloseFile> file(
        std::fopen(common::paths::kResolverConfig, "re"));
    if (!file) return false;
    std::array<char, kResolverLine> line;
    while (std::fgets(line.data(), line.size(), file.get()) != nullptr) {
        std::string_view rest = line.data();
        if (next_word(rest) != "domain" || line[0] != 'd') continue;
        const std::size_t used = common::bounded(name).size();
        const std::string_view domain = next_word(rest);
        common::format_into(name.subspan(used), ".%.*s", static_cast<int>(domain.size()),
                            domain.data());
        return true;
    }
    return false;
}

// Determined once: on a host without a stored id, gethostid() looks up the host's name.
unsigned host_id() noexcept {
    if (!g_host_id_known) {
        log::flush_log();
        g_host_id = static_cast<unsigned>(::gethostid());
        g_host_id_known = true;
    }
    return g_host_id;
}

struct Instant {
    unsigned seconds;
    unsigned microseconds;
};

Instant now() noexcept {
    timeval tv{};
    if (::gettimeofday(&tv, nullptr) != 0) return {static_cast<unsigned>(std::time(nullptr)), 0};
    return {static_cast<unsigned>(tv.tv_sec), static_cast<unsigned>(tv.tv_usec)};
}

}  // namespace

bool find_host_name(std::span<char, kHostSize> name) noexcept {
    utsname system{};
    ::uname(&system);
    common::copy_into(name, common::bounded(system.nodename));
    return std::strchr(name.data(), '.') == nullptr && append_domain(name);
}

int make_boundary(std::span<char, kBoundarySize> boundary, std::time_t seconds) noexcept {
    return common::format_into(boundary, "---------------OvWexl%.10lld",
                               static_cast<long long>(seconds));
}

bool put_date(TextSink out) noexcept {
    std::array<char, kDateSize> date;
    SMTP_makeDate(date.data());
    return put_line(out, "Date: ", date.data());
}

bool put_message_id(TextSink out) noexcept {
    std::array<char, kMessageIdSize> line;
    SMTP_MakeMsgId(line.data());
    return out.put(line.data());
}

}  // namespace ovrmail::mime

std::int32_t SMTP_makeDate(char* dst) noexcept {
    using namespace ovrmail::mime;
    if (dst == nullptr) return 0;
    // Kept: the offset is in whole hours, without summer time, and UTC has a minus sign. Readers of
    // the Date field rely on this documented form.
    const int hours = SMTP_GetTimeDifference();
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    return ovrmail::common::format_into(
        {dst, kDateSize}, "%s, %02d %s %04d %02d:%02d:%02d %s%02d%02d",
        kWeekdays[static_cast<std::size_t>(local.tm_wday)], local.tm_mday,
        kMonths[static_cast<std::size_t>(local.tm_mon)], local.tm_year + 1900, local.tm_hour,
        local.tm_min, local.tm_sec, hours > 0 ? "+" : "-", std::abs(hours), 0);
}

std::int32_t SMTP_makeBoundary(char* dst) noexcept {
    using namespace ovrmail::mime;
    if (dst == nullptr) return 0;
    return make_boundary(std::span<char, kBoundarySize>(dst, kBoundarySize), std::time(nullptr));
}

void SMTP_MakeMsgId(char* dst) noexcept {
    using namespace ovrmail::mime;
    ovrmail::log::TraceFrame trace("mkmsgid0000", "mkmsgidFFFF");
    if (g_host_name[0] == '\0' && find_host_name(g_host_name))
        trace.note("mkmsgid0030", g_host_name.data());
    const unsigned id = host_id();
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 16> stamp;
    if (std::strftime(stamp.data(), stamp.size(), "%Y%m%d%H%M%S", &local) == 0) stamp[0] = '\0';
    const Instant instant = now();
    if (dst != nullptr)
        ovrmail::common::format_into({dst, kMessageIdSize}, "Message-Id: <%s.%x%x%x@%s>\r\n",
                                     stamp.data(), instant.seconds, instant.microseconds, id,
                                     g_host_name.data());
}

std::int32_t SMTP_makeid(char* dst, const char* address) noexcept {
    using namespace ovrmail::mime;
    ovrmail::log::TraceScope trace("smtp1500", "smtp15FF");
    if (dst == nullptr) return trace.leave(kOk);
    std::array<char, 129> host{};
    ::gethostname(host.data(), host.size() - 1);
    if (char* const dot = std::strchr(host.data(), '.')) *dot = '\0';
    const Instant instant = now();
    std::array<char, 160> start;  // five letters, three words of eight digits, the host, "@", NUL
    const int length = ovrmail::common::format_into(start, "wexlb%x%x%s%x@", instant.seconds,
                                                    instant.microseconds, host.data(), host_id());
    char* end = std::copy_n(start.data(), length, dst);
    const std::string_view rest = text_or_empty(address);
    end = std::replace_copy(rest.begin(), rest.end(), end, '@', '.');
    *end = '\0';
    return trace.leave(static_cast<std::int32_t>(end - dst));
}
