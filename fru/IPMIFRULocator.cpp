// Board fields at fixed places of the board area, and the presence test.
#include "fru/IPMIFRULocator.h"

#include <algorithm>
#include <cstring>

#include "base/log.h"

namespace ipmisel {

namespace {

// Data counts as present when any of its first 101 bytes is set.
constexpr size_t kPresenceBytes = 101;

// Common header byte 3: the board area's offset in multiples of 8.
enum : size_t { kBoardOffsetByte = 3, kAreaMultiple = 8 };

// Board-area offsets of the fields in the order they are kept. The layout is
// the one our boards are built with: 32-byte fields, a type/length byte and up
// to 31 characters, which is why the type/length bytes are never read.
constexpr size_t kBoardFieldOffsets[] = {38, 7, 134, 102, 71};
constexpr size_t kBoardFieldMax = 32;

// A processor FRU keeps five board and four product places empty in front of
// whatever its board area holds.
// Product fields are board fields 1..4.
enum : size_t {
    kProcessorBoardBlanks = 5,
    kProcessorProductBlanks = 4,
    kFirstProductField = 1,
    kProductFieldCount = 4,
};

constexpr const char* kBlank = " ";

bool IsBoardFieldChar(uint8_t c) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) {
        return true;
    }
    return c != '\0' && std::strchr(" ()-./[\\]_", c) != nullptr;
}

} // namespace

std::string ReadBoardField(const uint8_t* fruData, size_t pos) {
    std::string text;
    for (size_t i = pos; i < kFRUDataSize && text.size() < kBoardFieldMax; ++i) {
        const uint8_t c = fruData[i];
        if (c == 0 || !IsBoardFieldChar(c)) {
            break;
        }
        text.push_back(static_cast<char>(c));
    }
    return text;
}

bool IPMIFRULocator::HasFRUData() const {
    const uint8_t* end = fruData + kPresenceBytes;
    if (std::any_of(fruData, end, [](uint8_t b) { return b != 0; })) {
        return true;
    }
    Log(SevDetail, "FRU Data Not Available for current device.");
    return false;
}

void IPMIFRULocator::GetFRUAreas(const std::string& id, bool boardOnly) {
    Log(SevTrace, "IPMIFRULocator::GetFRUAreas() function entered.");
    boardFields.clear();
    productFields.clear();
    if (id == "CPU") {
        boardFields.assign(kProcessorBoardBlanks, kBlank);
        productFields.assign(kProcessorProductBlanks, kBlank);
    }

    Log(SevTrace, "IPMIFRULocator::Get Board Info start.");
    const size_t board = kAreaMultiple * fruData[kBoardOffsetByte];
    if (board == 0) {
        Log(SevDetail, "IPMIFRULocator::No Board Info Available.");
    } else {
        for (size_t offset : kBoardFieldOffsets) {
            boardFields.push_back(ReadBoardField(fruData, board + offset));
        }
    }

    if (!boardOnly) {
        Log(SevTrace, "IPMIFRULocator::Get Product Info start.");
        if (!boardFields.empty()) {
            const auto first = boardFields.begin() + kFirstProductField;
            productFields.insert(productFields.end(), first, first + kProductFieldCount);
        }
    }
    Log(SevTrace, "IPMIFRULocator::GetFRUAreas() function completed.");
}

} // namespace ipmisel
