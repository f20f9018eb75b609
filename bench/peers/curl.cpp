// curl.cpp - libcurl with its MIME API; an easy handle and a connection per mail.
#include <curl/curl.h>

#include <ctime>
#include <memory>
#include <stdexcept>

#include "client.hpp"

namespace {

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using List = std::unique_ptr<curl_slist, FreeList>;

void append(List& list, const std::string& text) {
    list.reset(curl_slist_append(list.release(), text.c_str()));
}

curl_mime* make_message(CURL* handle, const bench::Mail& mail) {
    curl_mime* const message = curl_mime_init(handle);
    curl_mimepart* part = curl_mime_addpart(message);
    const std::string body = mail.wire_body();
    curl_mime_data(part, body.data(), body.size());
    curl_mime_type(part, (std::string("text/plain; charset=") + mail.charset()).c_str());
    if (mail.attachment.empty()) return message;
    part = curl_mime_addpart(message);
    curl_mime_filedata(part, mail.attachment.c_str());
    curl_mime_type(part, "application/octet-stream");
    curl_mime_encoder(part, "base64");
    return message;
}

void deliver(const bench::Mail& mail) {
    CURL* const handle = curl_easy_init();
    List recipients;
    for (const std::string& one : mail.recipient_list()) append(recipients, "<" + one + ">");
    List header;
    append(header, bench::date_field());
    append(header, "From: " + mail.sender);
    append(header, "To: " + mail.recipients);
    append(header, "Subject: " + mail.subject);
    curl_mime* const message = make_message(handle, mail);
    const std::string url = "smtp://" + mail.host + ":" + std::to_string(mail.port);
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_MAIL_FROM, ("<" + mail.sender + ">").c_str());
    curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, recipients.get());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, header.get());
    curl_easy_setopt(handle, CURLOPT_MIMEPOST, message);
    const CURLcode rc = curl_easy_perform(handle);
    curl_easy_cleanup(handle);
    curl_mime_free(message);
    if (rc != CURLE_OK) throw std::runtime_error(curl_easy_strerror(rc));
}

}  // namespace

int main(int argc, char** argv) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    return bench::run(argc, argv, deliver);
}
