// SPDX-License-Identifier: MIT
#include "Download.h"

#include "Progress.h"
#include "TargetFile.h"
#include "Transfer.h"

namespace
{

// Callers hand the URL over in its readable form, with blanks and non-ASCII letters as they are.
std::string percentEncoded(const std::string& url)
{
    static const char* const digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char character : url) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte > 0x20 && byte < 0x7f) {
            encoded += character;
        } else {
            encoded.append({'%', digits[byte >> 4], digits[byte & 0xf]});
        }
    }
    return encoded;
}

} // namespace

void download(const std::string& url, const std::string& path)
{
    const std::string address = percentEncoded(url);
    TargetFile target(path);
    Progress progress;
    const bool resumed =
        target.canResume(address) && Transfer(address, target, progress, Transfer::Begin::AtFileEnd).run();
    if (!resumed) {
        Transfer(address, target, progress, Transfer::Begin::AtZero).run();
    }
    target.commit();
    progress.finish(target.size());
}
