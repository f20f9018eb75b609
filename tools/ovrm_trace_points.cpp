// ovrm_trace_points.cpp - the table of trace points; see ovrm_trace_points.hpp.
//
// In the order of the folders, the files and the lines. A frame is a function with its entry and
// its exit; the data is that of the exit. A point that several files write stands where it was
// first. check_trace_points.py prints the row for a point that is missing.
#include "ovrm_trace_points.hpp"

#include <algorithm>
#include <initializer_list>
#include <unordered_map>

#include "pop3/transport.hpp"
#include "smtp/result.hpp"

namespace ovrm_trace {
namespace {

struct Frame {
    const char* entry;
    const char* exit;
    const char* function;
    Data data;
    const char* text;
};
struct Point {
    const char* name;
    const char* function;
    Role role;
    Data data;
    const char* text;
};
struct Source {
    const char* file;
    std::initializer_list<Frame> frames;
    std::initializer_list<Point> points;
};

using enum Role;
using enum Data;

constexpr Source kSources[] = {
    {"mailapi/auth_check.cpp",
     {{"CHKCERT0000", "CHKCERTFFFF", "check_auth_option", kResult, "the authentication option"},
      {"CAUTH0000", "CAUTHFFFF", "check_auth_account", kResult, "the account of SMTP AUTH"}},
     {{"CHKCERT0010", "check_auth_option", kWrong, kText,
       "the authentication option is neither POP before SMTP (1) nor SMTP AUTH (2)"},
      {"CHKCERT0020", "check_auth_option", kWrong, kResult,
       "the authentication option has no account"},
      {"CAUTH0010", "check_auth_account", kWrong, kResult,
       "the user name of SMTP AUTH is empty or longer than 64 bytes"},
      {"CAUTH0020", "check_auth_account", kWrong, kResult,
       "the password of SMTP AUTH is longer than 64 bytes"},
      {"CAUTH0030", "check_auth_account", kWrong, kNumber,
       "the account of SMTP AUTH allows no known mechanism"}}},

    {"mailapi/compose.cpp",
     {},
     {{"EMAILAPI0094", "append_attachments", kCarry, kOfFile, "adding an attachment"},
      {"EMAILAPI0086", "open_composed", kWrong, kResult,
       "the name of the composed file is too long"},
      {"EMAILAPI0088", "open_composed", kStep, kErrno, "making the composed file"},
      {"EMAILAPI0090", "compose_message", kCarry, kOfFile, "composing header and text"},
      {"EMAILAPI0092", "compose_message", kStep, kOfFile, "closing the body file"},
      {"EMAILAPI0095", "finish_composed", kStep, kOfFile, "finishing the composed file"},
      {"EMAILAPI0096", "count_pieces", kStep, kOfFile, "rewinding the composed file"},
      {"EMAILAPI0098", "count_pieces", kStep, kResult, "getting memory for a piece"},
      {"EMAILAPI009A", "count_pieces", kCarry, kOfFile, "counting the pieces"}}},

    {"mailapi/conversation.cpp",
     {{"ENDPROC0000", "ENDPROCFFFF", "~Conversation", kNone, "closing the connection"}},
     {{"EMAILAPI0110", "kConnect", kCarry, kOfCall, "connecting to the server"},
      {"EMAILAPI0120", "kInitialize", kCarry, kOfCall, "opening the session"},
      {"EMAILAPI0130", "kMail", kCarry, kOfCall, "naming sender and recipients"},
      {"EMAILAPI0140", "kStartData", kCarry, kOfCall, "DATA"},
      {"EMAILAPI0150", "kSendData", kCarry, kOfCall, "sending the message"},
      {"EMAILAPI0160", "kPieceMemory", kStep, kOfCall, "getting memory for a piece"},
      {"EMAILAPI0170", "kGetPiece", kStep, kOfCall, "reading a piece from the composed file"},
      {"EMAILAPI0180", "kSendPiece", kCarry, kOfCall, "sending a piece"},
      {"EMAILAPI0190", "kEndData", kCarry, kOfCall, "the end of the message"},
      {"EMAILAPI01A0", "kQuit", kCarry, kOfCall, "QUIT"}}},

    {"mailapi/mail_options.cpp",
     {{"READRMMAIL0000", "READRMMAILFFFF", "read_mail_options", kResult, "reading rmmail.ini"}},
     {{"READRMMAIL0010", "read_mail_options", kStep, kCode, "getting memory for rmmail.ini"}}},

    {"mailapi/pop_before_smtp.cpp",
     {{"BEFORE0000", "BEFOREFFFF", "pop_before_smtp", kResult, "POP before SMTP"}},
     {{"BEFORE0020", "run_session", kCarry, kLookup, "connecting to the POP3 server"},
      {"BEFORE0030", "run_session", kCarry, kErrno, "the POP3 login"},
      {"BEFORE0040", "run_session", kCarry, kErrno, "STAT on the POP3 server"},
      {"BEFORE0050", "run_session", kCarry, kPop, "QUIT on the POP3 server"},
      {"BEFORE0010", "pop_before_smtp", kWrong, kResult,
       "a field of the POP3 account is out of its limits"}}},

    {"mailapi/prepared_message.cpp",
     {{"EMLSMIME0000", "EMLSMIMEFFFF", "send_prepared", kResult, "the prepared message"}},
     {{"EMLSMIME0030", "compose_prepared", kCarry, kOfFile, "adding the prepared header"},
      {"EMLSMIME0040", "compose_prepared", kCarry, kOfFile, "adding the prepared content"},
      {"EMLSMIME0010", "send_prepared", kCarry, kResult, "composing the prepared message"},
      {"EMLSMIME0050", "send_prepared", kCarry, kResult, "sending the prepared message"}}},

    {"mailapi/request_check.cpp",
     {},
     {{"TIMEOUT0010", "kTimeOutFields", kWrong, kNumber,
       "the time-out of the connection is not 60 to 3,600 seconds"},
      {"TIMEOUT0020", "kTimeOutFields", kWrong, kNumber,
       "the time-out of MAIL FROM is not 60 to 3,600 seconds"},
      {"TIMEOUT0030", "kTimeOutFields", kWrong, kNumber,
       "the time-out of RCPT TO is not 60 to 3,600 seconds"},
      {"TIMEOUT0040", "kTimeOutFields", kWrong, kNumber,
       "the time-out of DATA is not 60 to 3,600 seconds"},
      {"TIMEOUT0050", "kTimeOutFields", kWrong, kNumber,
       "the time-out of a block of the message is not 60 to 3,600 seconds"},
      {"TIMEOUT0060", "kTimeOutFields", kWrong, kNumber,
       "the time-out of the end of the message is not 60 to 3,600 seconds"},
      {"EMAILAPI0010", "check_pointers", kWrong, kResult, "a required argument is a null pointer"},
      {"EMAILAPI0020", "check_recipient", kWrong, kNumber,
       "the recipient list has fewer than 1 entries"},
      {"EMAILAPI0022", "check_recipient", kWrong, kNumber,
       "the recipient list has an entry of another kind, or without a text"},
      {"EMAILAPI0024", "check_recipient", kWrong, kResult,
       "the recipients are empty or longer than 256 bytes"},
      {"EMAILAPI0026", "check_recipient", kWrong, kResult, "the recipients hold a line break"},
      {"EMAILAPI0030", "check_sender_and_server", kWrong, kResult,
       "the sender is empty or longer than 256 bytes"},
      {"EMAILAPI0032", "check_sender_and_server", kWrong, kResult, "the sender holds a line break"},
      {"EMAILAPI0034", "check_sender_and_server", kWrong, kResult,
       "the name of the server is empty or longer than 256 bytes"},
      {"EMAILAPI0044", "check_prepared_shape", kWrong, kResult,
       "a prepared message has more parts than a content and a header"},
      {"EMAILAPI0046", "check_prepared_shape", kWrong, kResult,
       "a prepared message cannot be split"},
      {"EMAILAPI0048", "check_prepared_shape", kWrong, kResult,
       "a prepared message has a body text too"},
      {"EMAILAPI0040", "check_parts", kWrong, kNumber, "the part list has fewer than 1 entries"},
      {"EMAILAPI0042", "check_parts", kWrong, kNumber, "the first part is of another kind than 2"},
      {"EMAILAPI0050", "check_parts", kWrong, kNumber,
       "a part has a kind not allowed there, or no path of 1 to 1,024 bytes; its index"},
      {"EMAILAPI0060", "check_split", kWrong, kNumber, "the split flag is neither 0 nor 1"},
      {"EMAILAPI0062", "check_split", kWrong, kNumber, "the split size is not 10 to 100 KiB"},
      {"EMAILAPI0070", "check_text", kWrong, kResult, "the subject is longer than 64 bytes"},
      {"EMAILAPI0072", "check_text", kWrong, kResult, "the text is longer than 10,238 bytes"}}},

    {"mailapi/result_map.cpp",
     {},
     {{"CHANGE0060", "map_result", kWrong, kNumber, "a code that has no result"}}},

    {"mailapi/send_driver.cpp",
     {{"EMAILAPI0000", "EMAILAPIFFFF", "OvRm_SendEMailPartial_parts", kResult,
       "the steps of the send"}},
     {{"EMAILAPI1020", "authenticate", kCarry, kResult, "the authentication option"},
      {"EMAILAPI1030", "authenticate", kCarry, kResult, "POP before SMTP"},
      {"EMAILAPI1040", "authenticate", kCarry, kResult, "the account of SMTP AUTH"},
      {"EMAILAPI1010", "prepare", kCarry, kCode, "reading rmmail.ini"},
      {"EMAILAPI2010", "send_mail", kCarry, kResult, "the prepared message"},
      {"EMAILAPI00FF", "OvRm_SendEMailPartial_parts", kCarry, kResult, "the steps of the send"}}},

    {"mailapi/send_entry.cpp",
     {{"SNDEMAIL0000", "ACERTFFFF", "OvRm_SendEMail", kResult, "OvRm_SendEMail"}},
     {}},

    {"mailapi/staging.cpp",
     {{"MEMDATA0000", "MEMDATAFFFF", "write_body_file", kResult, "the body file"},
      {"GETSIZE0000", "GETSIZEFFFF", "estimate_size_kb", kNumber, "the size of the mail in KiB"}},
     {{"MEMDATA0010", "write_body_file", kWrong, kResult, "the name of the body file is too long"},
      {"MEMDATA0020", "write_body_file", kStep, kErrno, "making the body file"},
      {"MEMDATA0030", "write_body_file", kStep, kErrno, "writing the body file"},
      {"GETSIZE0010", "estimate_size_kb", kStep, kErrno, "examining an attachment"},
      {"EMAILAPI0080", "stage_body", kCarry, kErrno, "the body file"},
      {"EMAILAPI0082", "decide_split", kCarry, kResult, "the size of the mail"}}},

    {"mailapi/status_query.cpp",
     {{"MKSTAT0000", "MKSTATFFFF", "make_status", kNumber, "the word of status flags"},
      {"STATUS0000", "STATUSFFFF", "OvRm_GetStatusDovrin", kNumber, "OvRm_GetStatusDovrin"},
      {"STATUS20000", "STATUS2FFFF", "OvRm_GetStatusDovrin2", kNumber, "OvRm_GetStatusDovrin2"}},
     {{"MKSTAT0010", "make_status", kDetail, kNumber, "the start type"},
      {"STATUS20010", "OvRm_GetStatusDovrin2", kWrong, kCode, "the error word is a null pointer"},
      {"STATUS20020", "OvRm_GetStatusDovrin2", kWrong, kCode, "the status word is a null pointer"},
      {"STATUS20030", "OvRm_GetStatusDovrin2", kStep, kNumber,
       "reading the installation record of the agent"},
      {"STATUS20040", "OvRm_GetStatusDovrin2", kStep, kNumber,
       "reading the installation record of the manager"},
      {"STATUS20050", "OvRm_GetStatusDovrin2", kStep, kNumber,
       "reading the installation record of the manager, which is required"}}},

    {"mailapi/text_prepare.cpp",
     {{"CHANGE0000", "CHANGEFFFF", "euc_to_sjis", kNumber, "EUC-JP to Shift_JIS, in bytes"},
      {"GETLANG0000", "GETLANGFFFF", "locale_text_code", kNumber,
       "the code of the locale (1 EUC-JP, 2 Shift_JIS, 0 another)"}},
     {{"CHANGE0010", "euc_to_sjis", kWrong, kCode,
       "this system has no converter from EUC-JP to Shift_JIS"},
      {"CHANGE0020", "euc_to_sjis", kStep, kCode, "converting a line from EUC-JP to Shift_JIS"},
      {"EMAILAPI1060", "convert_text", kCarry, kCode, "opening the converter"},
      {"GETLANG0010", "locale_text_code", kWrong, kCode, "the process has no locale"},
      {"EMAILAPI1050", "prepare_text", kStep, kResult, "getting memory for the text"}}},

    {"mailapi/work_file.cpp",
     {{"MKTMP0000", "MKTMPFFFF", "name", kNumber, "the name of a working file"}},
     {{"MKTMP0020", "name", kWrong, kCode, "the name of a working file is too long"}}},

    {"mime/attachment.cpp",
     {{"smtp0700", "smtp07FF", "append_file", kMime, "adding an attachment"},
      {"SmimeFil0000", "SmimeFilFFFF", "append_target", kMime, "adding a prepared file"}},
     {{"smtp0718", "put_disposition", kDetail, kText, "the attachment, file name alone"},
      {"smtp0717", "put_disposition", kDetail, kText, "the attachment"},
      {"smtp0730", "append_file", kStep, kErrno, "opening an attachment"},
      {"smtp0735", "append_file", kStep, kErrno, "reading an attachment"},
      {"smtp0740", "append_file", kStep, kErrno, "writing an attachment to the composed file"},
      {"smtp0745", "append_file", kStep, kErrno, "writing an attachment to the composed file"},
      {"SmimeFil0010", "append_target", kStep, kErrno, "opening a prepared file"},
      {"SmimeFil0020", "append_target", kStep, kErrno, "reading a prepared file"},
      {"SmimeFil0050", "append_target", kStep, kErrno,
       "writing a prepared file to the composed file"}}},

    {"mime/header.cpp",
     {{"smtp0600", "smtp06FF", "build", kMime, "writing header and text"},
      {"makeTop_0000", "makeTop_FFFF", "make_top", kMime, "header and text"},
      {"makeMIE_0000", "makeMIE_FFFF", "SMTP_makeMIME", kMime, "the header of a prepared message"}},
     {{"smtp0652", "put_text_part", kDetail, kNone, "the text is Japanese"},
      {"smtp0653", "put_text_part", kDetail, kText, "the type of the text"},
      {"smtp0654", "put_text_part", kDetail, kText, "the type of the text"},
      {"smtp0605", "build", kStep, kErrno, "rewinding the composed file"},
      {"smtp0645", "build", kStep, kErrno, "opening the body file"},
      {"smtp0650", "build", kStep, kErrno, "reading the body file"},
      {"smtp0660", "build", kStep, kErrno, "writing header and text to the composed file"}}},

    {"mime/identity.cpp",
     {{"mkmsgid0000", "mkmsgidFFFF", "SMTP_MakeMsgId", kNone, "the Message-Id"},
      {"smtp1500", "smtp15FF", "SMTP_makeid", kNumber, "the identifier of the pieces, in bytes"}},
     {{"mkmsgid0030", "SMTP_MakeMsgId", kDetail, kText, "the name of this host"}}},

    {"mime/partial.cpp",
     {{"smtp1400", "smtp14FF", "send_piece", kSmtp, "a piece"}},
     {{"smtp1410", "point_", kDetail, kText, "a line of the piece's header"},
      {"smtp1415", "put_addresses", kDetail, kText, "the date of the piece"},
      {"smtp1420", "put_addresses", kDetail, kText, "the sender of the piece"},
      {"smtp1425", "put_addresses", kDetail, kText, "the recipients of the piece"},
      {"smtp1430", "put_names", kDetail, kText, "the subject of the piece"},
      {"smtp1440", "put_names", kDetail, kText, "the Message-Id of the piece"},
      {"smtp1445", "put_names", kDetail, kText, "the MIME version of the piece"},
      {"smtp1450", "put_names", kDetail, kText, "the number of the piece"},
      {"smtp1465", "put_names", kDetail, kText, "the end of the piece's header"},
      {"smtp1470", "send_piece", kStep, kSmtp, "the header of a piece"},
      {"smtp1475", "send_piece", kStep, kSmtp, "a piece"}}},

    {"mime/piece.cpp",
     {{"smtp1200", "smtp12FF", "add_lines", kNumber, "lines added to a piece, in bytes"},
      {"smtp1000", "smtp10FF", "next_piece", kNumber, "cutting a piece, in bytes"}},
     {{"smtp1210", "add_lines", kStep, kErrno, "reading the composed file"},
      {"smtp1220", "add_lines", kStep, kErrno, "seeking in the composed file"},
      {"smtp1031", "judge", kDetail, kNone, "the last delimiter lies in the piece"},
      {"smtp1030", "judge", kDetail, kNone, "the piece ends outside the header of a part"},
      {"smtp1010", "next_piece", kStep, kErrno, "reading the composed file"},
      {"smtp1011", "next_piece", kDetail, kNumber, "the last piece, in bytes"},
      {"smtp1020", "next_piece", kStep, kErrno, "reading the composed file"},
      {"smtp1025", "next_piece", kStep, kErrno, "seeking in the composed file"},
      {"smtp1040", "next_piece", kCarry, kMime, "adding a line to a piece"},
      {"smtp1050", "next_piece", kCarry, kMime, "adding the header of a part to a piece"}}},

    {"mime/stream.cpp",
     {{"smtp0500", "smtp05FF", "stream_file", kSmtp, "the message"}},
     {{"smtp0505", "stream_file", kStep, kErrno, "reading the composed file"},
      {"smtp0510", "stream_file", kStep, kSmtp, "the message"}}},

    {"smtp/auth.cpp",
     {{"GTAINF0000", "GTAINFFFFF", "offered_mechanisms", kNone, "what the server offers"},
      {"INIAH0000", "INIAHFFFF", "authenticate", kSmtp, "SMTP AUTH"},
      {"INCRAM0000", "INCRAMFFFF", "auth_cram_md5", kSmtp, "AUTH CRAM-MD5"},
      {"INPLAN0000", "INPLANFFFF", "auth_plain", kSmtp, "AUTH PLAIN"},
      {"INLGIN0000", "INLGINFFFF", "auth_login", kSmtp, "AUTH LOGIN"}},
     {{"GTAINF0010", "offered_mechanisms", kDetail, kNumber,
       "the mechanisms offered (1 LOGIN, 2 PLAIN, 4 CRAM-MD5, added up)"},
      {"INIAH0010", "authenticate", kStep, kSmtp, "SMTP AUTH"},
      {"INIAH0020", "authenticate", kCarry, kSmtp, "SMTP AUTH"},
      {"INIAH0030", "authenticate", kCarry, kSmtp, "every mechanism of SMTP AUTH"},
      {"INCRAM0010", "auth_cram_md5", kStep, kSmtp, "AUTH CRAM-MD5"},
      {"INCRAM0020", "auth_cram_md5", kWrong, kSmtp,
       "the challenge of AUTH CRAM-MD5 cannot be answered"},
      {"INCRAM0030", "auth_cram_md5", kStep, kSmtp, "the answer of AUTH CRAM-MD5"},
      {"INPLAN0010", "auth_plain", kStep, kSmtp, "AUTH PLAIN"},
      {"INLGIN0010", "auth_login", kStep, kSmtp, "AUTH LOGIN"},
      {"INLGIN0020", "auth_login", kStep, kSmtp, "the user name of AUTH LOGIN"},
      {"INLGIN0030", "auth_login", kStep, kSmtp, "the password of AUTH LOGIN"}}},

    {"smtp/commands.cpp",
     {{"SMTP0200-2", "SMTP02FF-2", "SMTP_MAIL", kSmtp, "sender and recipients"},
      {"smtp0200", "smtp02FF", "SMTP_startData", kSmtp, "DATA"},
      {"smtp0400", "smtp04FF", "SMTP_endData", kSmtp, "the end of the message"},
      {"RSET0000", "RSETFFFF", "SMTP_RSET", kSmtp, "RSET"},
      {"SMTP0400-2", "SMTP04FF-2", "SMTP_QUIT", kSmtp, "QUIT"}},
     {{"smtp0145", "SMTP_MAIL", kStep, kSmtp, "MAIL FROM"},
      {"smtp0191", "SMTP_MAIL", kStep, kSmtp, "RCPT TO"},
      {"smtp0210", "SMTP_startData", kStep, kSmtp, "DATA"},
      {"smtp0410", "SMTP_endData", kStep, kSmtp, "the end of the message"},
      {"RSET0010", "SMTP_RSET", kStep, kSmtp, "RSET"},
      {"smtp0410-2", "SMTP_QUIT", kStep, kSmtp, "QUIT"},
      {"smtp0420-2", "SMTP_QUIT", kStep, kSmtp, "the reply to QUIT"}}},

    {"smtp/connect.cpp",
     {{"getsmtp0000", "getsmtpFFFF", "find_server", kNone, "looking up the server"},
      {"smtp0000", "smtp00FF", "SMTP_connect", kNumber, "connecting to the server, the socket"}},
     {{"getsmtp0010", "find_server", kStep, kResolver, "looking up the server"},
      {"smtp0005", "SMTP_connect", kDetail, kText, "the server"},
      {"smtp0010", "SMTP_connect", kCarry, kSmtp, "looking up the server"},
      {"smtp1060", "SMTP_connect", kStep, kSmtp, "making a socket"},
      {"smtp1070", "SMTP_connect", kStep, kSmtp, "connecting to the server"}}},

    {"smtp/credentials.cpp",
     {{"AHPLA0000", "AHPLAFFFF", "Auth_GetCertPlainString", kNumber, "the text of AUTH PLAIN"},
      {"AHLGIN0000", "AHLGINFFFF", "Auth_GetCertLoginString", kNumber, "the texts of AUTH LOGIN"},
      {"AHCRAM0000", "AHCRAMFFFF", "Auth_GetCertCramString", kNumber, "the text of AUTH CRAM-MD5"}},
     {{"AHPLA0010", "Auth_GetCertPlainString", kWrong, kCode, "no room for the text is given"},
      {"AHPLA0020", "Auth_GetCertPlainString", kWrong, kCode,
       "the texts of AUTH PLAIN are too long"},
      {"AHLGIN0010", "Auth_GetCertLoginString", kWrong, kCode, "no room for the texts is given"},
      {"AHLGIN0020", "Auth_GetCertLoginString", kWrong, kCode, "a text of AUTH LOGIN is too long"},
      {"AHCRAM0010", "Auth_GetCertCramString", kWrong, kCode, "no room for the text is given"},
      {"AHCRAM0020", "Auth_GetCertCramString", kWrong, kCode,
       "the challenge of AUTH CRAM-MD5 is no base64, or too long"},
      {"AHCRAM0030", "Auth_GetCertCramString", kWrong, kCode,
       "the text of AUTH CRAM-MD5 is too long"}}},

    {"smtp/initialize.cpp",
     {{"AUTHR0000", "AUTHRFFFF", "read_ehlo_reply", kNumber,
       "the reply to EHLO (0 accepted, 1 refused)"},
      {"smtp0100", "smtp01FF", "SMTP_initialize", kSmtp, "opening the session"}},
     {{"AUTHR0010", "read_ehlo_reply", kCarry, kSmtp, "the reply to EHLO"},
      {"smtp0105", "SMTP_initialize", kStep, kSmtp, "the greeting"},
      {"smtp0110", "SMTP_initialize", kStep, kSmtp, "finding the name of this host"},
      {"smtp0115", "SMTP_initialize", kStep, kSmtp, "EHLO"},
      {"smtp0120", "SMTP_initialize", kStep, kSmtp, "HELO"},
      {"smtp0125", "SMTP_initialize", kCarry, kSmtp, "SMTP AUTH"}}},

    {"smtp/session_buffers.cpp",
     {{"GETSMTP0000", "GETSMTPFFFF", "SMTP_GetSmtpSvResponce", kNone, "the reply for the caller"}},
     {}},

    {"smtp/timeout.cpp",
     {{"SETTIME0000", "SETTIMEFFFF", "SMTP_SetTimeOutInfo", kNone, "the time-outs"},
      {"SETIMEO0000", "SETIMEOFFFF", "SMTP_SetTimeOut", kNone, "the time budget of a step"},
      {"SETSTART0000", "SETSTARTFFFF", "SMTP_SetStartTime", kNone, "starting the clock"},
      {"CHKOVER0000", "CHKOVERFFFF", "SMTP_CheckOverTimeOut", kSmtp, "whether the time is spent"},
      {"GETSLCT0000", "GETSLCTFFFF", "SMTP_GetSelectTimeOut", kNone, "how long to wait"},
      {"GETDIFF0000", "GETDIFFFFFF", "SMTP_GetTimeDifference", kNumber,
       "the offset of the local time, in hours"}},
     {{"CHKOVER0010", "SMTP_CheckOverTimeOut", kCarry, kSmtp, "the time is spent"},
      {"GETSLCT0010", "SMTP_GetSelectTimeOut", kCarry, kNumber,
       "the time is overspent, seconds left"}}},

    {"smtp/transport.cpp",
     {{"smtp0f00", "smtp0fFF", "receive_line", kSmtp, "receiving a line"},
      {"SMTP_s0000", "SMTP_sFFFF", "SMTP_send", kSmtp, "sending"},
      {"smtp0e00", "smtp0eFF", "SMTP_send2", kSmtp, "sending bytes"},
      {"smtp0d00", "smtp0dFF", "SMTP_returnMessage", kSmtp, "receiving a reply"}},
     {{"smtp0f05", "receive_line", kDetail, kReceived, "received"},
      {"smtp0f10", "receive_line", kCarry, kSmtp, "receiving a line"},
      {"SMTP_s0010", "SMTP_send", kCarry, kSmtp, "sending"},
      {"smtp0e01", "SMTP_send2", kCarry, kSmtp, "sending no bytes"},
      {"smtp0e05", "SMTP_send2", kDetail, kSent, "to be sent"},
      {"smtp0e10", "SMTP_send2", kCarry, kSmtp, "sending bytes"},
      {"smtp0d10", "SMTP_returnMessage", kCarry, kSmtp, "receiving a reply"}}},

    {"pop3/session.cpp",
     {{"getpop0000", "getpopFFFF", "find_host", kNone, "looking up the POP3 server"},
      {"Pop3_0100", "Pop3_03ff", "Pop3_Connect", kNumber,
       "connecting to the POP3 server, the socket"},
      {"Pop3_0400", "Pop3_07ff", "Pop3_Login", kPop, "the POP3 login"},
      {"Pop3_0900", "Pop3_09ff", "Pop3_STAT", kPop, "STAT on the POP3 server"},
      {"Pop3_0800", "Pop3_08ff", "Pop3_Logout", kPop, "QUIT on the POP3 server"}},
     {{"getpop0010", "find_host", kStep, kResolver, "looking up the POP3 server"},
      {"Pop3_0110", "Pop3_Connect", kCarry, kPop, "looking up the POP3 server"},
      {"Pop3_0210", "Pop3_Connect", kStep, kNumber, "making a socket for the POP3 server"},
      {"Pop3_0310", "Pop3_Connect", kStep, kNumber, "connecting to the POP3 server"},
      {"Pop3_0410", "Pop3_Login", kStep, kPop, "the POP3 greeting"},
      {"Pop3_0510", "Pop3_Login", kStep, kPop, "the POP3 user"},
      {"Pop3_0610", "Pop3_Login", kStep, kPop, "the POP3 password"},
      {"Pop3_0910", "Pop3_STAT", kStep, kPop, "STAT on the POP3 server"},
      {"Pop3_0810", "Pop3_Logout", kStep, kPop, "QUIT on the POP3 server"}}},

    {"pop3/transport.cpp",
     {{"PGTSTO0000", "PGTSTOFFFF", "seconds_left", kNone, "how long to wait for the POP3 server"},
      {"Pop3_0c00", "Pop3_0cff", "receive_line", kNumber,
       "receiving a line from the POP3 server, in bytes"},
      {"Pop3_0b00", "Pop3_0bff", "send_bytes", kPop, "sending to the POP3 server"},
      {"Pop3_0a00", "Pop3_0aff", "read_reply", kNumber,
       "the reply of the POP3 server (1 positive, 2 negative)"},
      {"Pop3_Set0000", "Pop3_SetFFFF", "Pop3_SetTimeOut", kNone, "the time-out of POP3"}},
     {{"Pop3_0c10", "receive_line", kCarry, kPop, "receiving a line from the POP3 server"},
      {"Pop3_0c05", "receive_line", kDetail, kReceived, "received"},
      {"Pop3_0b05", "send_bytes", kDetail, kSent, "to be sent"},
      {"Pop3_0b10", "send_bytes", kCarry, kPop, "sending to the POP3 server"},
      {"Pop3_0a10", "read_reply", kCarry, kPop, "receiving a reply from the POP3 server"}}},
};

using Index = std::unordered_map<std::string_view, Meaning>;

Index index_of_all() {
    Index index;
    for (const auto& [file, frames, points] : kSources) {
        for (const Frame& frame : frames) {
            index[frame.entry] = {file, frame.function, kEntry, kNone, frame.text};
            index[frame.exit] = {file, frame.function, kExit, frame.data, frame.text};
        }
        for (const auto& [name, function, role, data, text] : points)
            index[name] = {file, function, role, data, text};
    }
    return index;
}

struct CodeRange {
    Data data;
    std::int32_t first;
    std::int32_t last;
    Ending ending;
};
namespace smtp = ovrmail::smtp;
namespace pop3 = ovrmail::pop3;
constexpr CodeRange kEndings[] = {
    {kSmtp, smtp::kResetRefused, smtp::kHeloRefused, Ending::kRefused},
    {kSmtp, smtp::kAuthRefused, smtp::kAuthRefused, Ending::kRefused},
    {kSmtp, smtp::kNoMechanism, smtp::kNoMechanism, Ending::kNoMechanism},
    {kSmtp, smtp::kTimeOut, smtp::kTimeOut, Ending::kTimedOut},
    {kSmtp, smtp::kSend, smtp::kSend, Ending::kNotSent},
    {kSmtp, smtp::kReceive, smtp::kReceive, Ending::kNotReceived},
    {kPop, pop3::kQuitRefused, pop3::kGreetingRefused, Ending::kRefused},
    {kPop, pop3::kTimeOut, pop3::kTimeOut, Ending::kTimedOut},
};

}  // namespace

const Meaning* meaning_of(std::string_view point) {
    static const Index index = index_of_all();
    const auto found = index.find(point);
    return found == index.end() ? nullptr : &found->second;
}

Data data_of(const Meaning& meaning, std::size_t n) {
    constexpr Data kCall[] = {kSmtp, kNumber, kLookup, kText, kText, kText, kNumber, kNumber};
    constexpr Data kFile[] = {kMime, kErrno};
    if (meaning.data == kOfCall) return kCall[n % std::size(kCall)];
    if (meaning.data == kOfFile) return kFile[n % std::size(kFile)];
    return meaning.data;
}

std::string part_of(const Meaning& meaning, std::size_t n) {
    constexpr const char* kCall[] = {"",           "socket",   "error", "sender",
                                     "recipients", "boundary", "piece", "pieces"};
    if (meaning.data != kOfCall || n % std::size(kCall) == 0) return {};
    return std::string(", ") + kCall[n % std::size(kCall)];
}

Ending ending_of(Data data, std::int32_t code) {
    const auto* const found =
        std::find_if(std::begin(kEndings), std::end(kEndings), [=](const CodeRange& range) {
            return range.data == data && code >= range.first && code <= range.last;
        });
    return found == std::end(kEndings) ? Ending::kUnknown : found->ending;
}

}  // namespace ovrm_trace
