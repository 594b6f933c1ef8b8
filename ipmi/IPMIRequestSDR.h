// Reading one BMC node's SDR repository: repository info, reservation, and a
// walk that keeps header, units and ID-string pieces of every full or compact
// sensor record as hexadecimal text.
#pragma once

#include <cstdint>
#include <vector>

#include "ipmi/IPMIRequestFrame.h"

namespace ipmisel {

// Where each piece of a record's text sits in its block, and how wide it is.
// A piece may fill its width with no terminator: read it with its width.
enum {
    SDRHeaderOffset = 0,
    SDRHeaderTextSize = 64,
    SDRUnitsOffset = 64,
    SDRUnitsTextSize = 96,
    SDRStringOffset = 160,
    SDRStringTextSize = 64,
    SDRTextBlockSize = 224,
};

// One sensor record's pieces: header text at 0 (64), units at 64 (96), ID
// string at 160 (64).
struct SDRTextBlock {
    char text[224];
    const char* Header() const { return text; }
    const char* Units() const { return text + 64; }
    const char* String() const { return text + 160; }
};

enum { SDRInfoTextSize = 64 };

class IPMIRequestSDR : public IPMIRequestFrame {
  public:
    uint8_t recordType = 0;
    uint8_t reservationID[2] = {0, 0};   // high, low
    uint8_t currentRecordID[2] = {0, 0}; // high, low
    uint8_t nextRecordID[2] = {0, 0};    // high, low
    // Record ID the last header answer carried (record bytes 0 and 1), high, low.
    uint8_t headerRecordID[2] = {0, 0};

    explicit IPMIRequestSDR(NOXAQSV20::SPLibrary* library) : IPMIRequestFrame(library) {}

    int IPMIGetSDRInfo(char* info); // info: SDRInfoTextSize characters
    int IPMIReserveSDR();
    int IPMIGetSDRHeader(SDRTextBlock& block);
    int IPMIGetSDRUnits(SDRTextBlock& block);
    int IPMIGetSDRString(SDRTextBlock& block);
    // Whole walk; blocks are appended in repository order. 0 success, 1 when a
    // request failed (blocks already appended stay).
    int IPMIGetSDREntry(std::vector<SDRTextBlock>& blocks, char* info);
};

} // namespace ipmisel
