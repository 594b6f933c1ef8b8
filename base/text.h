// Bounded text building for fixed caller-supplied buffers. Every text the
// plug-in builds goes through these, so the truncation rules live in one place:
//  - TextFormat/TextCopy/TextAppend always terminate and cut what does not fit;
//  - CopyOut has strncpy semantics (no terminator when the text fills the
//    buffer), which is how results are handed back to callers;
//  - a size of 2^31 or more (a negative size from a signed caller) appends
//    nothing, rather than trusting a size that cannot be real.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ipmisel {

// snprintf into dst[size]; returns the number of characters written (not the
// number that would have been written).
size_t TextFormat(char* dst, size_t size, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
size_t TextFormatV(char* dst, size_t size, const char* fmt, va_list ap);

// Copy src into dst[size], cut at size - 1 and terminated.
void TextCopy(char* dst, size_t size, const char* src);

// Append src to the text already in dst[size], cut and terminated. dst must
// hold a terminated text within size (if it does not, nothing is appended).
void TextAppend(char* dst, size_t size, const char* src);
void TextAppend(char* dst, size_t size, const std::string& src);

// Append a formatted piece, cut and terminated.
void TextAppendF(char* dst, size_t size, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

// strncpy: copy at most size characters, padding with zeros; no terminator
// when src has size characters or more.
void CopyOut(char* dst, size_t size, const char* src);

// Length of the terminated text in buf, or size when there is no terminator.
size_t TextLength(const char* buf, size_t size);

// Two upper-case hex digits and a blank per byte ("%02X ").
std::string HexBytes(const uint8_t* bytes, size_t count);

} // namespace ipmisel
