// The message file behind IPMIMapping::GetINIString: "ipmisel.INI" beside the
// plug-in, one "id=text" entry a line. Internal to the mapping subsystem, but
// for Pass, which the exports open around their record loops.
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
// per path; a lookup looks at the file (one stat()) and reads it again when
// its size, times or identity changed, or when it changed so shortly before it
// was last read that stat() could not show a further change. Within a Pass
// (below) only the first lookup of each file looks. The file is never held
// open between calls.
Lookup Find(const std::string& path, const std::string& key, char* out, int32_t size);
// Find with the decimal text of id as the key; the matching line of an id is
// remembered by number, so the key's text is made only at its first lookup.
Lookup FindId(const std::string& path, int32_t id, char* out, int32_t size);

// A stretch of lookups that is answered from one look at each file: while a
// Pass lives, a file is looked at (stat(), read again when it changed) at its
// first lookup in the pass, and later lookups of the pass take it as it was
// then. The SEL export of a node opens one, so that decoding a large SEL does
// not stat() the file several times a record. Passes nest; the outermost one
// decides. Outside any pass every lookup looks at the file.
class Pass {
  public:
    Pass();
    ~Pass();
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
};

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
