// The peer of the SMTP benchmark: libcurl with its own MIME builder, one easy handle throughout.
#include <curl/curl.h>

#include "Client.h"

namespace {

curl_mime* buildMessage(CURL* curl, const bench::Options& options, const std::string& html) {
    curl_mime* mime = curl_mime_init(curl);
    curl_mimepart* part = curl_mime_addpart(mime);
    curl_mime_data(part, html.data(), html.size());
    curl_mime_type(part, "text/html; charset=utf-8");
    curl_mime_encoder(part, "quoted-printable");
    if (!options.attachment.empty()) {
        part = curl_mime_addpart(mime);
        curl_mime_filedata(part, options.attachment.c_str());
        curl_mime_type(part, "application/octet-stream");
        curl_mime_encoder(part, "base64");
    }
    return mime;
}

CURL* openHandle(const bench::Options& options, char* error) {
    CURL* curl = curl_easy_init();
    const std::string scheme = options.tls == "implicit" ? "smtps" : "smtp";
    const std::string url = scheme + "://127.0.0.1:" + std::to_string(options.port) + "/client";
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
    if (options.tls == "starttls") {
        curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    }
    if (options.ca.empty()) {
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    } else {
        curl_easy_setopt(curl, CURLOPT_CAINFO, options.ca.c_str());
    }
    return curl;
}

// libcurl keeps sessions in the handle.
bool connectOnce(CURL*& curl, const bench::Options& options, char* error) {
    if (options.connect == "fresh") {
        curl_easy_cleanup(curl);
        curl = openHandle(options, error);
    }
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "NOOP");
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) std::fprintf(stderr, "%s\n", error);
    return result == CURLE_OK;
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options = bench::parse(argc, argv);
    const std::string html = bench::readFile(options.html);
    char error[CURL_ERROR_SIZE] = "";
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* curl = openHandle(options, error);
    curl_slist* recipients = nullptr;
    for (int i = 0; i < options.recipients; ++i) {
        recipients = curl_slist_append(recipients, bench::recipient(i).c_str());
    }
    curl_slist* headers = nullptr;
    for (const char* line : {"From: <sender@example.com>", "To: <user0@example.com>",
                             "Subject: Benchmark", "Date: Mon, 01 Jan 2024 00:00:00 +0000"}) {
        headers = curl_slist_append(headers, line);
    }
    const int code = bench::measure(options, [&] {
        if (!options.connect.empty()) return connectOnce(curl, options, error);
        curl_mime* mime = buildMessage(curl, options, html);
        curl_easy_setopt(curl, CURLOPT_MAIL_FROM, bench::kSender.c_str());
        curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_MIMEPOST, mime);
        const CURLcode result = curl_easy_perform(curl);
        curl_mime_free(mime);
        if (result != CURLE_OK) std::fprintf(stderr, "%s\n", error);
        return result == CURLE_OK;
    });
    curl_easy_cleanup(curl);
    curl_slist_free_all(recipients);
    curl_slist_free_all(headers);
    return code;
}
