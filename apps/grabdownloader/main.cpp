// SPDX-License-Identifier: MIT
#include "Download.h"

#include <csignal>
#include <cstdio>
#include <curl/curl.h>
#include <stdexcept>
#ifndef _WIN32
#include <fcntl.h>
#include <unistd.h>
#endif

namespace
{

// The parent may end before the download does, or start it with streams closed: a socket or the target file
// that takes such a stream's number would receive the reports.
void survivePoorStreams()
{
#ifndef _WIN32
    std::signal(SIGPIPE, SIG_IGN);
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
#endif
}

} // namespace

int main(int argc, char** argv)
{
    survivePoorStreams();
    if (argc != 3 || !*argv[1] || !*argv[2]) {
        std::fputs("usage: grabdownloader.exe URL TARGETFILE\n", stderr);
        return 2;
    }
    try {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
            throw std::runtime_error("cannot start libcurl");
        }
        download(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "grabdownloader: %s\n", error.what());
        return 1;
    }
    std::fputs("SUCCESS\n", stderr);
    return 0;
}
