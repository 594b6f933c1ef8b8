// Writing instances as they stream out of the host: one JSON object per line
// for machines, a table for people, CSV for spreadsheets. Each writer sees one
// instance at a time and never holds the whole collection, so a full SEL of
// 65,535 records streams through in constant memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "collector/Options.h"
#include "host/runtime.h"

namespace ipmisel::collector {

class InstanceWriter {
  public:
    virtual ~InstanceWriter() = default;
    virtual void write(const host::Instance& instance) = 0;
    // Called once after the last instance.
    virtual void finish() {}
};

// Terminal columns for the table; the others ignore it.
std::unique_ptr<InstanceWriter> makeWriter(Format format, std::ostream& out, size_t width = 120);

// Each line is written straight from the instance by a streaming JSON writer
// into one reused buffer: no document is built per line.
class JsonlWriter : public InstanceWriter {
  public:
    explicit JsonlWriter(std::ostream& out);
    ~JsonlWriter() override;
    void write(const host::Instance& instance) override;

  private:
    struct Line;
    std::ostream& out_;
    std::unique_ptr<Line> line_;
};

// The log records in fixed columns (node, record ID, time stamp, sensor type,
// sensor, message); FRU and firmware instances as one block per part, held
// back and printed after everything else (FRU blocks first); the rest as
// "Class: name=value, ..." lines wrapped at the width. Fixed widths because a
// stream cannot be measured before it is printed.
class TableWriter : public InstanceWriter {
  public:
    TableWriter(std::ostream& out, size_t width);
    void write(const host::Instance& instance) override;
    void finish() override;

    static constexpr size_t kMinMessageWidth = 16;

  private:
    void writeLogRecord(const host::Instance& instance);
    void writeOther(const host::Instance& instance);

    std::ostream& out_;
    size_t width_;
    bool wroteAnything_ = false;
    bool inLogTable_ = false;
    // A machine has a handful of parts and firmware elements against up to
    // 65,535 log records per BMC: holding these back costs nothing.
    std::vector<host::Instance> fruBlocks_, firmwareBlocks_;
};

// One section per run of instances of a class: a header row (the property
// names of the first instance of that class, or the full property list of a
// log record) and one row per instance, RFC 4180 quoting, CRLF line ends.
// Sections are separated by an empty line. An instance bringing a property
// the header lacks starts a new section with the header widened.
class CsvWriter : public InstanceWriter {
  public:
    explicit CsvWriter(std::ostream& out) : out_(out) {}
    void write(const host::Instance& instance) override;

  private:
    std::ostream& out_;
    std::map<std::string, std::vector<std::string>> columns_; // class -> header
    std::string currentClass_;
    bool wroteAnything_ = false;
};

// ---- text helpers, public for the tests ----------------------------------------

// The label of a class shown as part blocks ("FRU", "BMC", "CPLD", "FPGA",
// "AMI", "VPD"), or null for any other class.
const char* blockLabel(std::string_view className);

// One part as the table shows it: "<label padded to 4> <ElementName> (node
// <SourceNode>)", then one line per property, "    Name: value", the values
// aligned and wrapped at `width`. The name and node of the first line, the
// boilerplate properties and empty values are not repeated below it.
std::vector<std::string> partBlock(const host::Instance& instance, std::string_view label,
                                   size_t width);

// True for exactly the CIM date-time text "yyyymmddhhmmss.mmmmmm+ooo" (sign
// '+' or '-').
bool isCimDateTime(std::string_view text);

// The log record's message as the table shows it: folded onto one line, and
// without the "(sensor type - sensor)" part when it only repeats the record's
// own columns ("Processor 1 (Processor - CPU1 Status): Assertion: ..." becomes
// "Processor 1: Assertion: ..."). Any other message is shown whole.
std::string tableMessage(const host::Instance& record);

// Runs of white space (new lines included) become one space, the ends are
// trimmed, and other control characters become '?', so one value is one line.
std::string foldWhitespace(std::string_view text);

// Columns the text takes on a terminal: UTF-8 continuation bytes take none.
size_t displayWidth(std::string_view text);

// The text cut to at most `width` columns, ending in "..." when something was
// cut; never splits a UTF-8 sequence.
std::string fitWidth(std::string_view text, size_t width);

// fitWidth, then padded with spaces to exactly `width` columns (on the left
// when rightAlign).
std::string column(std::string_view text, size_t width, bool rightAlign = false);

// Lines of at most `width` columns, broken at spaces where possible; lines
// after the first start with `indent` spaces.
std::vector<std::string> wrapText(std::string_view text, size_t width, size_t indent);

// "yyyymmddhhmmss.mmmmmm+ooo" as "yyyy-mm-dd hh:mm:ss"; anything else as it is.
std::string displayTimestamp(std::string_view cim);

// Bytes as upper-case hexadecimal pairs separated by single spaces.
std::string hexBytes(const std::vector<uint8_t>& bytes);

// A property value as text: texts and date-times as they are, bytes as hex.
std::string propertyText(const host::Property& property);

// One CSV field, quoted when it holds a comma, quote, CR or LF.
std::string csvField(std::string_view text);

} // namespace ipmisel::collector
