// ovrm_send_message.cpp - composes a message with GMime: UTF-8 in quoted-printable or base64,
// encoded words, names of files as RFC 2231 has them.
//
// GMime is loaded when it is asked for and is no dependency of the command: it brings libraries
// that a plain mail does without. Its functions are found by name; their types are those of its
// headers.
#include "ovrm_send_message.hpp"

#include "ovrm_send_files.hpp"

#ifdef OVRMAIL_WITH_GMIME

#include <dlfcn.h>
#include <gmime/gmime.h>

#include <array>
#include <memory>
#include <string_view>

#include "mime.h"

namespace ovrm_send {
namespace {

constexpr const char* kLibrary = "libgmime-3.0.so.0"; /* package libgmime-3.0-0 */

void* library() {
    static void* const handle = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    return handle;
}

template <class Function>
Function* find(const char* name) {
    return reinterpret_cast<Function*>(dlsym(library(), name));
}
#define GMIME(name) find<decltype(::name)>(#name)

struct Unref {
    void operator()(void* object) const { GMIME(g_object_unref)(object); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

GMimeObject* base(void* object) { return static_cast<GMimeObject*>(object); }

// A part with these bytes.
Owned<GMimePart> make_part(const char* type, const char* subtype, std::string_view bytes) {
    Owned<GMimePart> part(GMIME(g_mime_part_new_with_type)(type, subtype));
    const Owned<GMimeStream> stream(
        GMIME(g_mime_stream_mem_new_with_buffer)(bytes.data(), bytes.size()));
    const Owned<GMimeDataWrapper> content(
        GMIME(g_mime_data_wrapper_new_with_stream)(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    GMIME(g_mime_part_set_content)(part.get(), content.get());
    return part;
}

Owned<GMimePart> make_text(const char* subtype, std::string_view text) {
    Owned<GMimePart> part = make_part("text", subtype, text);
    GMIME(g_mime_object_set_content_type_parameter)(base(part.get()), "charset", "utf-8");
    return part;
}

// Puts the first object and the others into a multipart; the first alone stays as it is.
Owned<GMimeObject> wrap(const char* subtype, Owned<GMimeObject> first,
                        const std::vector<Owned<GMimePart>>& others) {
    if (others.empty()) return first;
    GMimeMultipart* const multipart = GMIME(g_mime_multipart_new_with_subtype)(subtype);
    GMIME(g_mime_multipart_add)(multipart, first.get());
    for (const auto& part : others) GMIME(g_mime_multipart_add)(multipart, base(part.get()));
    return Owned<GMimeObject>(base(multipart));
}

Owned<GMimeObject> make_content(const Letter& letter) {
    std::vector<Owned<GMimePart>> forms;
    if (!letter.text.empty() || !letter.html) forms.push_back(make_text("plain", letter.text));
    if (letter.html) forms.push_back(make_text("html", *letter.html));
    Owned<GMimeObject> first(base(forms.front().release()));
    forms.erase(forms.begin());
    return wrap("alternative", std::move(first), forms);
}

std::optional<ovrmail::Outcome> add_files(const std::vector<ovrmail::Attachment>& attachments,
                                          std::vector<Owned<GMimePart>>& parts) {
    for (const ovrmail::Attachment& attachment : attachments) {
        const std::string& path = attachment.path;
        std::string bytes;
        if (const int error = read_file(path, bytes); error != 0)
            return ovrmail::Outcome(MAIL_E_WORK_FILE, path, ovrmail::detail::system_words(error),
                                    error);
        parts.push_back(make_part("application", "octet-stream", bytes));
        GMimePart* const part = parts.back().get();
        GMIME(g_mime_object_set_disposition)(base(part), "attachment");
        GMIME(g_mime_part_set_filename)(part, path.substr(path.rfind('/') + 1).c_str());
        GMIME(g_mime_part_set_content_encoding)(part, GMIME_CONTENT_ENCODING_BASE64);
    }
    return std::nullopt;
}

void add_address(GMimeMessage* message, GMimeAddressType field, const Address& address) {
    const char* const name = address.name.empty() ? nullptr : address.name.c_str();
    GMIME(g_mime_message_add_mailbox)(message, field, name, address.mailbox.c_str());
}

void set_header(GMimeMessage* message, const Options& options, const Addresses& to) {
    constexpr int kMessageIdSize = 400;
    for (const Address& address : options.from)
        add_address(message, GMIME_ADDRESS_TYPE_FROM, address);
    for (const Address& address : to) add_address(message, GMIME_ADDRESS_TYPE_TO, address);
    GMIME(g_mime_message_set_subject)(message, options.subject.c_str(), "utf-8");
    GDateTime* const now = GMIME(g_date_time_new_now_local)();
    GMIME(g_mime_message_set_date)(message, now);
    GMIME(g_date_time_unref)(now);
    std::array<char, kMessageIdSize> line{};
    SMTP_MakeMsgId(line.data());
    const std::string_view field(line.data());
    const std::size_t open = field.find('<') + 1;
    const std::string id(field.substr(open, field.find('>') - open));
    GMIME(g_mime_message_set_message_id)(message, id.c_str());
}

}  // namespace

std::string composer_problem() {
    return library() != nullptr ? "" : std::string("GMime cannot be loaded: ") + dlerror();
}

std::optional<ovrmail::Outcome> compose_message(const Options& options, const Letter& letter,
                                                const Addresses& to, std::string& message) {
    GMIME(g_mime_init)();
    std::vector<Owned<GMimePart>> files;
    if (auto problem = add_files(options.attachments, files)) return problem;
    const Owned<GMimeMessage> whole(GMIME(g_mime_message_new)(TRUE));
    set_header(whole.get(), options, to);
    const Owned<GMimeObject> content = wrap("mixed", make_content(letter), files);
    GMIME(g_mime_message_set_mime_part)(whole.get(), content.get());
    GMIME(g_mime_object_encode)(base(whole.get()), GMIME_ENCODING_CONSTRAINT_7BIT);
    char* const text = GMIME(g_mime_object_to_string)(base(whole.get()), nullptr);
    message = text;
    GMIME(g_free)(text);
    return std::nullopt;
}

}  // namespace ovrm_send

#else

namespace ovrm_send {

std::string composer_problem() { return "this command was built without GMime"; }

std::optional<ovrmail::Outcome> compose_message(const Options& /*options*/,
                                                const Letter& /*letter*/, const Addresses& /*to*/,
                                                std::string& /*message*/) {
    return ovrmail::Outcome(MAIL_E_INTERNAL, "--utf8", composer_problem());
}

}  // namespace ovrm_send

#endif
