// A user's program in C++: SERVER FROM TO PORT.
#include <mail_api.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    const MailEntry to{MAIL_KIND_RECIPIENT, 0, argv[3]};
    const std::vector<MailEntry> parts{{MAIL_KIND_BODY, 0, "From C++."}};
    const MailSplitOption split{64, static_cast<std::uint32_t>(std::atoi(argv[4]))};
    std::array<char, 256> detail{};
    return OvRm_SendEMail(&to, 1, parts.data(), 1, argv[2], "C++", argv[1], 0, &split, nullptr,
                          nullptr, detail.data());
}
