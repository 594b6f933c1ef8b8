// The message file behind IPMIMapping::GetINIString: "ipmisel.INI" beside the
// plug-in, one "id=text" entry a line. Internal to the mapping subsystem.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ipmisel::message {

// Result of one lookup in a message file.
enum class Lookup {
    Found,     // out holds the text (possibly empty: the line had nothing after '=')
    NoMatch,   // no line contains the key
    OpenFailed // the file cannot be read
};

// Looks key up in the file at path. The answer is what scanning the file from
// the top with 512-byte line pieces would give: the first piece that contains
// key anywhere wins, its text after the first '=' is copied (at most size
// characters) and its line end stripped. The file's lines are kept in memory
// per path; every lookup looks at the file (one stat()) and reads it again when
// its size, times or identity changed, or when it changed so shortly before it
// was last read that stat() could not show a further change. The file is never
// held open between calls.
Lookup Find(const std::string& path, const std::string& key, char* out, int32_t size);

// Drops every cached file (tests; a long-running host that wants the memory).
void ClearCache();

// printf with one integer for a format taken from the message file. The format
// is used only when it holds exactly one integer conversion (d, i, u, x, X or o,
// with flags, a width and a precision of at most two digits, no '*', no length
// other than h or hh) and nothing else but "%%"; any other text is written as it
// stands followed by a blank and the number, so a damaged file cannot make the
// plug-in read arguments that are not there. Returns the characters written.
size_t FormatOneNumber(char* out, size_t size, const char* format, int value);
bool IsOneNumberFormat(const char* format);

} // namespace ipmisel::message
