// subject.cpp - SMTP_makeSubject: a Japanese subject as a folded row of encoded words (RFC 2047).
//
// Called for the Subject field of a mail and of every piece. Reads the Shift_JIS text once; the
// only buffer is that of the encoded word being filled. No state.
#include <array>
#include <cstring>

#include "common/base64.hpp"
#include "mime.h"
#include "mime/fields.hpp"
#include "mime/iso2022.hpp"
#include "mime/sjis.hpp"

namespace ovrmail::mime {
namespace {

constexpr std::string_view kFold = "\r\n ";
constexpr std::string_view kWordStart = "=?ISO-2022-JP?B?";
constexpr std::string_view kWordEnd = "?=";

// Columns are an estimate of the encoded line, which starts after "Subject: " at 0.
constexpr int kSingleLimit = 76;  // a single byte beyond it ends the line
constexpr int kOpenNeed = 12;     // a word is opened on the line if this much more
constexpr int kOpenLimit = 58;    // stays within this
constexpr int kOpenCost = 20;
constexpr int kPairCost = 4;
constexpr int kPairLimit = 70;
constexpr int kCloseCost = 6;

// A word opened at column 0 has columns for (70 - 20) / 4 = 12 pairs.
constexpr std::size_t kMaxPairs = (kPairLimit - kOpenCost) / kPairCost;

class SubjectEncoder {
public:
    explicit SubjectEncoder(TextSink out) noexcept : out_(out) {}

    bool encode(std::string_view subject) noexcept {
        // Kept: a leading dot is doubled here as in text lines. Existing callers rely on the same
        // result as from SMTP_toISO2022.
        if (subject.starts_with('.')) put_single('.');
        for (std::size_t i = 0; i < subject.size() && ok_;) {
            if (!is_sjis_lead(subject[i])) {
                put_single(subject[i++]);
                continue;
            }
            if (i + 1 == subject.size()) break;  // a lead byte alone at the end is left out
            const unsigned code = jis_code(static_cast<unsigned char>(subject[i]),
                                           static_cast<unsigned char>(subject[i + 1]));
            // Kept: an invalid pair ends the subject. Callers rely on this documented result.
            if (code < 0x100) return end_open();
            put_pair(code);
            i += 2;
        }
        close();
        return ok_;
    }

private:
    void put(std::string_view text) noexcept { ok_ = ok_ && out_.put(text); }

    void put_single(char byte) noexcept {
        close();
        put({&byte, 1});
        if (++column_ <= kSingleLimit) return;
        put(kFold);
        column_ = 0;
    }

    void put_pair(unsigned code) noexcept {
        open();
        if (column_ + kPairCost > kPairLimit) {
            append(kLeaveTwoByte);
            put_word();
            put(kFold);
            append(kEnterTwoByte);
            column_ = kOpenCost;
        }
        const char pair[2] = {static_cast<char>(code >> 8), static_cast<char>(code)};
        append({pair, 2});
        column_ += kPairCost;
    }

    void open() noexcept {
        if (used_ != 0) return;
        if (column_ + kOpenNeed > kOpenLimit) {
            put(kFold);
            column_ = 0;
        }
        append(kEnterTwoByte);
        column_ += kOpenCost;
    }

    void close() noexcept {
        if (used_ == 0) return;
        append(kLeaveTwoByte);
        put_word();
        column_ += kCloseCost;
    }

    bool end_open() noexcept {
        open();
        put_word();
        return ok_;
    }

    void append(std::string_view bytes) noexcept {
        std::memcpy(word_.data() + used_, bytes.data(), bytes.size());
        used_ += bytes.size();
    }

    void put_word() noexcept {
        std::array<char, common::base64_length(kWordBytes)> text;
        const std::size_t size = common::base64_encode(
            {reinterpret_cast<const unsigned char*>(word_.data()), used_}, text);
        put(kWordStart);
        put({text.data(), size});
        put(kWordEnd);
        used_ = 0;
    }

    static constexpr std::size_t kWordBytes =
        kEnterTwoByte.size() + 2 * kMaxPairs + kLeaveTwoByte.size();

    TextSink out_;
    std::array<char, kWordBytes> word_{};  // ISO-2022-JP of the word being filled; 0 used: none
    std::size_t used_ = 0;
    int column_ = 0;
    bool ok_ = true;
};

struct MemoryTarget {
    char* at;
    bool put(std::string_view text) noexcept {
        std::memcpy(at, text.data(), text.size());
        at += text.size();
        return true;
    }
};

}  // namespace

bool put_subject(TextSink out, std::string_view subject) noexcept {
    if (!holds_sjis_lead(subject)) return out.put(subject);
    return SubjectEncoder(out).encode(subject);
}

}  // namespace ovrmail::mime

void SMTP_makeSubject(const char* subject, char* dst) noexcept {
    using namespace ovrmail::mime;
    if (dst == nullptr) return;
    MemoryTarget memory{dst};
    put_subject(TextSink(memory), text_or_empty(subject));
    *memory.at = '\0';
}
