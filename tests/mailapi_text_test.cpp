// Text on its way into the mail: the code of the locale, conversion, line ends, the estimate.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "codeset.h"
#include "mailapi/result_map.hpp"
#include "mailapi/steps.hpp"
#include "support/delivery.hpp"
#include "support/fault.hpp"
#include "support/support.hpp"

namespace {

using namespace ovrmail::mailapi;
using support::Kind;
namespace fs = std::filesystem;

// A job as it stands after the checks.
struct Prepared {
    explicit Prepared(const char* body, const char* subject = "",
                      std::vector<MailEntry> attachments = {})
        : parts{{MAIL_KIND_BODY, 0, body}}, job(arguments(detail.data())) {
        parts.insert(parts.end(), attachments.begin(), attachments.end());
        job.parts = parts;
        job.body_length = body != nullptr ? std::string_view(body).size() : 0;
        std::string_view(subject).copy(job.subject.data(), kSubjectSize - 1);
    }
    static SendArguments arguments(char* detail) {
        SendArguments args{};
        args.detail = detail;
        args.work_dir = support::kWorkDir;
        return args;
    }
    std::vector<MailEntry> parts;
    std::array<char, kDetailSize> detail{};
    SendJob job;
};

class Euc : public testing::Test {
protected:
    void SetUp() override {
        if (!locale_.is_set())
            GTEST_SKIP() << "localedef cannot make ja_JP.eucJP (package locales)";
    }
    support::EucLocale locale_;
};

TEST_F(Euc, NameDecidesTheCode) {
    constexpr auto kEuc = TextCode::kEuc, kShiftJis = TextCode::kShiftJis,
                   kOther = TextCode::kOther;
    const std::pair<const char*, TextCode> names[] = {
        {"eucJP", kEuc},     {"EUC", kEuc},        {"euc", kEuc},         {"ja", kEuc},
        {"ja_JP", kEuc},     {"ja_JP.ujis", kEuc}, {"ja_JP.eucJP", kEuc}, {"JA_JP.EUCJP", kEuc},
        {"SJIS", kShiftJis}, {"PCK", kShiftJis},   {"JA", kOther},        {"EUCJP", kOther},
        {"C", kOther},
    };
    for (const auto& [name, code] : names) {
        std::error_code exists;
        fs::create_symlink("ja_JP.eucJP", std::getenv("LOCPATH") + ("/" + std::string(name)),
                           exists);
        ASSERT_NE(std::setlocale(LC_ALL, name), nullptr) << name;
        EXPECT_EQ(locale_text_code(), code) << name;
    }
    // Names that this C library does not take.
    EXPECT_STREQ(stEucLangInfo[0].name, "ja_JP.euc");
    EXPECT_STREQ(stSjisLangInfo[0].name, "ja_JP.PCK");
    EXPECT_STREQ(stSjisLangInfo[3].name, "ja_JP.SJIS");
}

TEST_F(Euc, TextIsConvertedLineByLine) {
    std::string long_line = "x";  // characters of two bytes then lie across byte 1,028
    std::string long_wanted = "x";
    for (int i = 0; i < 1500; ++i) long_line += "\xA4\xA2", long_wanted += "\x82\xA0";
    const struct {
        const char* name;
        std::string given;
        std::string wanted;
        bool unconverted;
    } cases[] = {
        {"japanese", "a\xA4\xA2\n\xA4\xA4\r\n\xB0\xA1", "a\x82\xA0\n\x82\xA2\r\n\x88\x9F", false},
        {"half-width shrinks", "\x8E\xB1\x8E\xB2", "\xB1\xB2", false},
        {"long line, nothing cut", long_line, long_wanted, false},
        {"broken second line", "\xA4\xA2\r\n\xA4", "\xA4\xA2\r\n\xA4", true},
    };
    for (const auto& row : cases) {
        Prepared text(row.given.c_str(), "\xC6\xFC\xCB\xDC");
        ASSERT_EQ(prepare_text(text.job), 0);
        EXPECT_EQ(std::string(text.job.body.get()), row.wanted) << row.name;
        EXPECT_STREQ(text.job.subject.data(), "\x93\xFA\x96\x7B") << row.name;
        EXPECT_EQ(text.job.unconverted, row.unconverted) << row.name;
    }
}

TEST_F(Euc, WithoutConverterTextGoesOutEmpty) {
    Prepared text("body", "subject");
    fault::fail_on("iconv_open", "", EINVAL);
    const fault::Watch watch;
    EXPECT_EQ(prepare_text(text.job), 0);
    EXPECT_STREQ(text.job.body.get(), "");
    EXPECT_STREQ(text.job.subject.data(), "");
    EXPECT_TRUE(text.job.unconverted);
}

TEST_F(Euc, FailedConversionIsReportedUnlessSomethingElseIs) {
    const std::pair<Kind, std::int32_t> cases[] = {{support::kPlain, MAIL_SENT_UNCONVERTED},
                                                   {support::kHelo, MAIL_SENT_UNAUTHENTICATED},
                                                   {support::kPrepared, MAIL_SENT}};
    for (const auto& [kind, wanted] : cases) {
        support::Delivery delivery(kind);
        delivery.mail.subject = "\xA4";
        EXPECT_EQ(delivery.run().result, wanted) << support::name_of(kind);
    }
}

TEST(BodyFile, HasNetworkLineEndsAndOneMore) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "\r\n"},
        {"\n\na\r\r\nb\r\n.\n\xFF\r", "\r\n\r\na\r\r\nb\r\n.\r\n\xFF\r\r\n"},
        {std::string(10238, '\n'),
         [] {  // the longest body, every byte of it doubled
             std::string all;
             while (all.size() < 2 * 10239) all += "\r\n";
             return all;
         }()},
    };
    for (const auto& [body, wanted] : cases) {
        Prepared text(body.c_str());
        ASSERT_TRUE(text.job.body_file.name(support::kWorkDir, "EMT", ::getpid()));
        support::write_file(text.job.body_file.path(), std::string(30000, 'o'));  // left over
        ASSERT_EQ(prepare_text(text.job), 0);
        ASSERT_EQ(stage_body(text.job), 0);
        EXPECT_EQ(support::read_file(text.job.body_file.path()), wanted);
    }
}

TEST(Estimate, DecidesWhetherAMailIsSplit) {
    const support::TempDir dir;
    const std::string file = dir.file("data");
    const std::vector<MailEntry> twice{{MAIL_KIND_ATTACHMENT, 0, file.c_str()},
                                       {MAIL_KIND_ATTACHMENT_TEMP, 0, file.c_str()}};
    // 10 KiB, less the 2 bytes behind the body, is what fits in one piece.
    const struct {
        std::size_t body;
        std::size_t file;
        bool with_files;
        bool split;
    } cases[] = {{10238, 0, false, false},
                 {10230, 3, true, false},
                 {10231, 3, true, true},
                 {10234, 1, true, false}};
    for (const auto& row : cases) {
        support::write_file(file, std::string(row.file, 'f'));
        const std::string body(row.body, 'b');
        Prepared text(body.c_str(), "", row.with_files ? twice : std::vector<MailEntry>{});
        text.job.split.lSplitSize = 10;
        text.job.partial = true;
        ASSERT_EQ(prepare_text(text.job), 0);
        ASSERT_EQ(decide_split(text.job), 0);
        EXPECT_EQ(text.job.partial, row.split) << row.body << " + 2 x " << row.file;
        EXPECT_EQ(text.job.has_attachment, row.with_files);
    }
}

}  // namespace
