#include "base/text.h"

#include <cstdio>
#include <cstring>

#include "base/format.h"

namespace ipmisel {

namespace {
// Sizes from signed callers arrive as huge unsigned values; nothing that big
// is a real buffer.
bool usable(size_t size) {
    return size > 0 && size < (size_t{1} << 31);
}
} // namespace

size_t TextFormatV(char* dst, size_t size, const char* fmt, va_list ap) {
    if (!usable(size)) {
        return 0;
    }
    int n = std::vsnprintf(dst, size, fmt, ap);
    if (n < 0) {
        dst[0] = '\0';
        return 0;
    }
    return static_cast<size_t>(n) < size ? static_cast<size_t>(n) : size - 1;
}

size_t TextFormat(char* dst, size_t size, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    size_t n = TextFormatV(dst, size, fmt, ap);
    va_end(ap);
    return n;
}

void TextCopy(char* dst, size_t size, const char* src) {
    if (!usable(size)) {
        return;
    }
    size_t n = strnlen(src, size - 1);
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

void TextAppend(char* dst, size_t size, const char* src) {
    if (!usable(size)) {
        return;
    }
    size_t used = strnlen(dst, size);
    if (used >= size) {
        return;
    }
    size_t room = size - 1 - used;
    size_t n = strnlen(src, room);
    std::memcpy(dst + used, src, n);
    dst[used + n] = '\0';
}

void TextAppend(char* dst, size_t size, const std::string& src) {
    TextAppend(dst, size, src.c_str());
}

void TextAppendF(char* dst, size_t size, const char* fmt, ...) {
    if (!usable(size)) {
        return;
    }
    size_t used = strnlen(dst, size);
    if (used >= size) {
        return;
    }
    va_list ap;
    va_start(ap, fmt);
    TextFormatV(dst + used, size - used, fmt, ap);
    va_end(ap);
}

void CopyOut(char* dst, size_t size, const char* src) {
    if (!usable(size)) {
        return;
    }
    std::strncpy(dst, src, size);
}

size_t TextLength(const char* buf, size_t size) {
    return strnlen(buf, size);
}

std::string HexBytes(const uint8_t* bytes, size_t count) {
    std::string out;
    out.reserve(count * 3);
    for (size_t i = 0; i < count; ++i) {
        out.append(kHexByteText[bytes[i]].data(), 3);
    }
    return out;
}

} // namespace ipmisel
