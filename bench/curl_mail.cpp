// curl_mail [--tls CERTIFICATE] PORT COUNT [FILE]: sends COUNT messages of 1 KB, or with FILE
// attached, over one libcurl connection; the peer that mail_bench measures against. With --tls the
// connection is secured by STARTTLS, and the server has that certificate.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <curl/curl.h>

namespace {

const std::string text =
    "From: ann@a.test\r\nTo: bob@b.test\r\nSubject: Hi\r\n\r\n" + std::string(1024, 'b') + "\r\n";

size_t read_text(char* buffer, size_t size, size_t count, void* position) {
    auto* const at = static_cast<size_t*>(position);
    const size_t length = std::min(size * count, text.size() - *at);
    std::memcpy(buffer, text.data() + *at, length);
    *at += length;
    return length;
}

curl_mime* with_attachment(CURL* curl, const char* path) {
    curl_mime* const mime = curl_mime_init(curl);
    curl_mimepart* part = curl_mime_addpart(mime);
    curl_mime_data(part, text.c_str(), CURL_ZERO_TERMINATED);
    part = curl_mime_addpart(mime);
    curl_mime_filedata(part, path);
    curl_mime_encoder(part, "base64");
    return mime;
}

}  // namespace

int main(int argc, char** argv) {
    CURL* const curl = curl_easy_init();
    if (argc > 2 && argv[1] == std::string("--tls")) {
        curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        curl_easy_setopt(curl, CURLOPT_CAINFO, argv[2]);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
        argc -= 2;
        argv += 2;
    }
    if (argc < 3) return 2;
    curl_slist* const recipients = curl_slist_append(nullptr, "<bob@b.test>");
    const std::string url = std::string("smtp://127.0.0.1:") + argv[1] + "/client.test";
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, "<ann@a.test>");
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    size_t position = 0;
    curl_mime* mime = nullptr;
    if (argc > 3) {
        mime = with_attachment(curl, argv[3]);
        curl_easy_setopt(curl, CURLOPT_MIMEPOST, mime);
    } else {
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, read_text);
        curl_easy_setopt(curl, CURLOPT_READDATA, &position);
    }
    CURLcode result = CURLE_OK;
    for (long left = std::atol(argv[2]); left > 0 && result == CURLE_OK; --left) {
        position = 0;
        result = curl_easy_perform(curl);
    }
    if (result != CURLE_OK) std::fprintf(stderr, "%s\n", curl_easy_strerror(result));
    curl_easy_cleanup(curl);
    curl_mime_free(mime);
    curl_slist_free_all(recipients);
    return result != CURLE_OK;
}
