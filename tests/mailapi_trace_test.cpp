// What a send leaves in its ring: the trace points of each road in order, from which the road can
// be read again, and never a password. Written with every detail on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "mime.h"
#include "support/roads.hpp"
#include "tools/ovrm_trace_ring.hpp"

namespace {

using namespace support;
using ovrm_trace::Record;

std::string the_ring() {
    const auto rings = files_in(kTraceDir);
    EXPECT_EQ(rings.size(), 1U);
    return read_file(std::string(kTraceDir) + "/" + rings.at(0));
}

class SendTrace : public testing::Test {
protected:
    void SetUp() override {
        std::array<char, 512> id{};
        SMTP_MakeMsgId(id.data());  // the host name is looked up, and traced, once only
        write_file("/etc/opt/Quorvin/trc_conf", "[ACERT]\nTRACELEVEL=2\nTRACESIZE=500\n");
        forget();
    }
    void TearDown() override { std::filesystem::remove("/etc/opt/Quorvin/trc_conf"); }
    static void forget() {
        for (const auto& ring : files_in(kTraceDir))
            std::filesystem::remove(std::string(kTraceDir) + "/" + ring);
    }
};

// Steps that occur again and again, in terms of those above them.
constexpr std::array<std::array<std::string_view, 2>, 29> kSteps{{
    {"clock", "SETSTART0000 SETSTARTFFFF"},
    {"phase", "SETIMEO0000 SETIMEOFFFF {clock}"},
    {"line", "smtp0f00 GETSLCT0000 GETSLCTFFFF smtp0f05 smtp0fFF"},
    {"send", "SMTP_s0000 smtp0e00 smtp0e05 smtp0eFF SMTP_sFFFF"},
    {"exchange", "{send} smtp0d00 {line} smtp0dFF"},
    {"start", "SNDEMAIL0000 EMAILAPI0000 SETTIME0000 SETTIMEFFFF READRMMAIL0000 READRMMAILFFFF"},
    {"language", "GETLANG0000 GETLANGFFFF"},
    {"name", "MKTMP0000 MKTMPFFFF"},
    {"stage", "{language} MEMDATA0000 {name} MEMDATAFFFF GETSIZE0000 GETSIZEFFFF {name}"},
    {"id", "mkmsgid0000 mkmsgidFFFF"},
    {"date", "GETDIFF0000 GETDIFFFFFF"},
    {"files", "smtp0700 smtp0717 smtp07FF smtp0700 smtp0717 smtp07FF"},
    {"text", "{id} smtp0654 smtp06FF makeTop_FFFF {files}"},
    {"compose", "makeTop_0000 smtp0600 {date} {text}"},
    {"greet",
     "smtp0000 smtp0005 {phase} getsmtp0000 getsmtpFFFF smtp00FF smtp0100 smtp0d00 {line} smtp0dFF "
     "{clock} {send} AUTHR0000 {line} {clock} {line} AUTHRFFFF"},
    {"transaction",
     "SMTP0200-2 {phase} {exchange} {phase} {exchange} SMTP02FF-2 smtp0200 {phase} "
     "{exchange} smtp02FF"},
    {"accepted", "smtp0400 {phase} {exchange} smtp04FF"},
    {"deliver", "{transaction} smtp0500 {phase} {send} smtp05FF {accepted}"},
    {"quit", "SMTP0400-2 {phase} {exchange} SMTP04FF-2 ENDPROC0000 ENDPROCFFFF"},
    {"part",
     "smtp1400 SETIMEO0000 SETIMEOFFFF {date} {clock} smtp1415 {send} smtp1420 {send} smtp1425 "
     "{send} "
     "smtp1430 {send} {id} smtp1440 {send} smtp1445 {send} smtp1450 {send} smtp1465 {send} "
     "{send} smtp14FF"},
    {"reset", "RSET0000 {clock} {exchange} RSETFFFF"},
    {"reply", "GETSMTP0000 GETSMTPFFFF"},
    {"failed", "ENDPROC0000 ENDPROCFFFF {reply}"},
    {"popline", "Pop3_0a00 Pop3_0c00 PGTSTO0000 PGTSTOFFFF Pop3_0c05 Pop3_0cff Pop3_0aff"},
    {"poptalk", "Pop3_0b00 Pop3_0b05 Pop3_0bff {popline}"},
    {"poplogin",
     "BEFORE0000 Pop3_Set0000 Pop3_SetFFFF Pop3_0100 getpop0000 getpopFFFF Pop3_03ff "
     "Pop3_0400 {popline} {poptalk} Pop3_0b00 Pop3_0bff {popline}"},
    {"cram",
     "CHKCERT0000 CHKCERTFFFF CAUTH0000 CAUTHFFFF {stage} {compose} {greet} GTAINF0000 GTAINF0010 "
     "GTAINFFFFF INIAH0000 INCRAM0000 {clock} {exchange} AHCRAM0000 AHCRAMFFFF {clock} {exchange}"},
    {"firstpart",
     "makeTop_0000 smtp0600 {text} smtp1000 smtp10FF smtp1000 smtp1030 smtp10FF smtp1000 smtp1030 "
     "smtp10FF smtp1000 smtp1011 smtp10FF smtp1000 smtp1011 smtp10FF smtp1500 smtp15FF {greet} "
     "smtp01FF {transaction} smtp1000 smtp10FF {part}"},
    {"prepared",
     "{language} EMLSMIME0000 {name} SmimeFil0000 SmimeFilFFFF SmimeFil0000 SmimeFilFFFF {greet} "
     "smtp01FF"},
}};

std::string expand(std::string text) {
    for (std::size_t open = 0; (open = text.find('{')) != std::string::npos;) {
        const std::size_t close = text.find('}', open);
        const std::string name = text.substr(open + 1, close - open - 1);
        const auto* const step = std::find_if(kSteps.begin(), kSteps.end(),
                                              [&](const auto& row) { return row[0] == name; });
        if (step == kSteps.end()) return "no step " + name;
        text.replace(open, close - open + 1, (*step)[1]);
    }
    return text;
}

// The points in order. Further blocks of the same body and the records of a failing call's values
// count as one.
std::string points_of(const std::vector<Record>& records) {
    std::string text;
    for (const Record& record : records) {
        const std::string point = (text.empty() ? "" : " ") + record.point;
        if (!text.ends_with(point)) text += point;
    }
    const std::string block = " " + expand("{clock} {send}");
    for (std::size_t at = 0; (at = text.find(block + block, at)) != std::string::npos;)
        text.erase(at, block.size());
    return text;
}

const struct {
    const char* name;
    Road road;
    std::int32_t result;
    const char* points;
    const char* refused = nullptr;  // command
    const char* also_refused = nullptr;
} kRoads[] = {
    {"plain, refused recipient", kPlain, -6,
     "{start} {stage} {compose} {greet} smtp01FF SMTP0200-2 {phase} {exchange} {phase} {exchange} "
     "smtp0191 EMAILAPI0130 {failed} EMAILAPI00FF ACERTFFFF",
     "RCPT"},
    {"authenticated", kAuth, 0,
     "{start} {cram} INCRAMFFFF INIAHFFFF smtp01FF {deliver} {quit} EMAILAPIFFFF ACERTFFFF"},
    {"authentication refused", kAuth, -25,
     "{start} {cram} INCRAM0030 INIAH0030 smtp01FF SMTP0200-2 {phase} {exchange} smtp0145 "
     "EMAILAPI0130 {failed} EMAILAPI00FF ACERTFFFF",
     "dXNlci", "MAIL"},
    {"pieces", kPartial, 0,
     "{start} {stage} {firstpart} {accepted} {reset} {transaction} smtp1000 smtp1030 smtp10FF "
     "{part} {accepted} {reset} {transaction} smtp1000 smtp1030 smtp10FF {part} {accepted} {reset} "
     "{transaction} smtp1000 smtp1011 smtp10FF {part} {accepted} {reset} {quit} EMAILAPIFFFF "
     "ACERTFFFF"},
    {"POP first", kPop, 0,
     "{start} CHKCERT0000 CHKCERTFFFF {poplogin} Pop3_07ff Pop3_0900 {poptalk} Pop3_09ff Pop3_0800 "
     "{poptalk} Pop3_08ff BEFOREFFFF {stage} {compose} {greet} smtp01FF {deliver} {quit} "
     "EMAILAPIFFFF ACERTFFFF"},
    {"POP password refused", kPop, -15,
     "{start} CHKCERT0000 CHKCERTFFFF {poplogin} Pop3_0610 BEFORE0030 EMAILAPI1030 EMAILAPI00FF "
     "ACERTFFFF",
     "PASS"},
    {"prepared, DATA refused", kPrepared, -6,
     "{start} {prepared} SMTP0200-2 {phase} {exchange} {phase} {exchange} SMTP02FF-2 smtp0200 "
     "{phase} {exchange} smtp0210 EMAILAPI0140 {reply} EMLSMIME0050 EMAILAPI2010 EMAILAPI00FF "
     "ACERTFFFF",
     "DATA"},
};

std::int32_t number_of(const Record& record) {
    std::int32_t number = 0;
    EXPECT_EQ(record.data.size(), sizeof number) << record.point;
    std::memcpy(&number, record.data.data(), std::min(record.data.size(), sizeof number));
    return number;
}

TEST_F(SendTrace, ShowsTheRoad) {
    for (const auto& road : kRoads) {
        SCOPED_TRACE(road.name);
        forget();
        const bool pop = road.road == kPop;
        Script changes;
        for (const char* command : {road.refused, road.also_refused}) {
            if (command != nullptr)
                changes.push_back({command, pop ? "-ERR no\r\n" : "550 no\r\n"});
        }
        Journey journey(road.road, pop ? Script{} : changes, pop ? changes : Script{});
        EXPECT_EQ(journey.run().result, road.result);
        const auto ring = ovrm_trace::read_ring(the_ring());
        EXPECT_EQ(ring.problem, "");
        EXPECT_EQ(points_of(ring.records), expand(road.points));
        ASSERT_FALSE(ring.records.empty());
        EXPECT_EQ(number_of(ring.records.back()), road.result);
        // What ends with a result carries it: no exit of a success is negative.
        for (const Record& record : ring.records) {
            if (record.data.empty() || !record.point.ends_with("FF")) continue;
            EXPECT_GE(number_of(record), road.result) << record.point;
        }
    }
}

// The password as it is, in hexadecimal, and what base64 makes of it at each offset in a group.
constexpr const char* kSecret = "tR0ub4dor&3xyz";
constexpr const char* kSecretBase64 = "dFIwdWI0ZG9yJjN4eXo=";
constexpr const char* kForms[] = {kSecret, "745230756234646f72263378797a", "dFIwdWI0ZG9yJjN4",
                                  "MHViNGRvciYzeHl6", "UjB1YjRkb3ImM3h5"};
std::string form_of(const std::string& bytes) {
    for (const char* form : kForms)
        if (bytes.find(form) != std::string::npos) return form;
    return "";
}

TEST_F(SendTrace, HoldsNoPassword) {
    const struct {
        const char* name;
        Road road;
        std::uint32_t mechanism;
        const char* goes_as;  // how the server gets it
        Script smtp_changes;
        Script pop_changes;
    } cases[] = {
        {"CRAM-MD5", kAuth, 4, "", {{"dXNlci", "535 no\r\n"}}, {}},
        {"PLAIN", kAuth, 2, kForms[3], {}, {}},
        {"LOGIN", kAuth, 1, kForms[2], {{kSecretBase64, "235 ok\r\n"}}, {}},
        {"PLAIN refused", kAuth, 2, kForms[3], {{"AUTH PLAIN", "535 no\r\n"}}, {}},
        {"LOGIN cut off", kAuth, 1, kForms[2], {{kSecretBase64, "", Then::kReset}}, {}},
        {"POP refused", kPop, 0, kSecret, {}, {{"PASS", "-ERR no\r\n"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        forget();
        Journey journey(c.road, c.smtp_changes, c.pop_changes);
        std::strcpy(journey.mail.account.szPassword, kSecret);
        std::strcpy(journey.mail.pop.szPassword, kSecret);
        journey.mail.account.ulMechanisms = c.mechanism;
        journey.run();
        auto& server = c.road == kPop ? journey.pop : journey.smtp;
        EXPECT_EQ(form_of(server.received()), c.goes_as) << "not what is looked for";
        EXPECT_EQ(form_of(the_ring() + read_file(log_path())), "");
        EXPECT_NE(read_file(log_path()).find("******"), std::string::npos);
    }
}

}  // namespace
