#include "sdr/IPMISDREntry.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/log.h"
#include "base/text.h"
#include "ipmi/IPMIRequestSDR.h"

namespace ipmisel {

namespace {

constexpr unsigned kIPMIVersion = 0x51;
constexpr size_t kIDStringSize = 17;
constexpr size_t kIDStringChars = 16;
constexpr size_t kTempStringSize = 64;

// A piece is read with its width and no further: the walk may fill a piece
// to its last character with no terminator.
template <size_t Width> struct Piece {
    char text[Width + 1];
    explicit Piece(const char* source) {
        const size_t n = source ? strnlen(source, Width) : 0;
        if (n > 0) {
            std::memcpy(text, source, n);
        }
        text[n] = '\0';
    }
};

bool KeptInIDString(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == ' ' ||
           c == '.' || c == '_';
}

} // namespace

IPMISDREntry::IPMISDREntry() : IDString(new char[kIDStringSize]()) {}

IPMISDREntry::~IPMISDREntry() {
    delete[] IDString;
}

int IPMISDREntry::ScanSDRInfoDataFile(const char* info) {
    Log(SevTrace, "IPMISDREntry::ScanSDRInfoDataFile() function entered.");
    const Piece<SDRInfoTextSize> text(info);

    // cc and the 14 bytes of the repository info; only the version counts.
    unsigned cc = 0, version = 0, spare = 0;
    int scanned = std::sscanf(text.text, "%x %x %x %x %x %x %x %x %x %x %x %x %x %x %x", &cc,
                              &version, &spare, &spare, &spare, &spare, &spare, &spare, &spare,
                              &spare, &spare, &spare, &spare, &spare, &spare);
    if (scanned == EOF) {
        Log(SevError, "Error in reading data file for SDRInfostring");
        return 1;
    }
    if (version != kIPMIVersion) {
        LogF(SevFailure,
             "This SDR Version (0x%x) does not match the current IPMI Version (0x%x).\n", version,
             kIPMIVersion);
        return 1;
    }
    Log(SevTrace, "IPMISDREntry::ScanSDRInfoDataFile() function completed.");
    return 0;
}

int IPMISDREntry::ScanSDRDataFile(const char* header, const char* units, const char* idString) {
    Log(SevTrace, "IPMISDREntry::ScanSDRDataFile() function entered.");
    std::memset(IDString, 0, 8);
    char tempIDString[kTempStringSize] = {};

    // Header: cc, next record ID low/high, record bytes 0..9. A short text
    // fills what it has; what it lacks keeps the entry's value.
    const Piece<SDRHeaderTextSize> head(header);
    Log(SevTrace, std::string("SDRHeaderData=") + head.text);
    unsigned cc = 0, nextLow = 0, nextHigh = 0;
    unsigned idLow = RecordIDLow, idHigh = RecordIDHigh, version = SDRVersion, type = RecordType,
             length = RecordLength, owner = 0, ownerLun = 0, sensor = SensorNumber,
             entity = EntityID, instance = EntityInstance;
    int scanned = std::sscanf(head.text, "%x %x %x %x %x %x %x %x %x %x %x %x %x", &cc, &nextLow,
                              &nextHigh, &idLow, &idHigh, &version, &type, &length, &owner,
                              &ownerLun, &sensor, &entity, &instance);
    SDRVersion = static_cast<uint8_t>(version);
    RecordType = static_cast<uint8_t>(type);
    RecordLength = static_cast<uint8_t>(length);
    SensorNumber = static_cast<uint8_t>(sensor);
    EntityID = static_cast<uint8_t>(entity);
    EntityInstance = static_cast<uint8_t>(instance);
    if (scanned == EOF) {
        Log(SevError, "Error in reading data file for SDRHeaderData.");
        return 1;
    }
    if (version != kIPMIVersion) {
        // The record ID is left out on purpose: such an entry is still
        // cached, found by its sensor number, and shows record ID 0.
        LogF(SevFailure,
             "This SDR entry (ID %d, vers 0x%x) does not match the current IPMI Version (0x%x).\n",
             static_cast<int>((idHigh & 0xFF) * 256 + (idLow & 0xFF)), version, kIPMIVersion);
        return 3;
    }
    RecordIDHigh = static_cast<uint8_t>(idHigh);
    RecordIDLow = static_cast<uint8_t>(idLow);

    // Units: cc, next record ID, record bytes 20..29. M and B are 10 bits
    // (two more in the top of the following byte), exponents two nibbles of
    // byte 29; all kept as the raw bit patterns.
    const Piece<SDRUnitsTextSize> unitsText(units);
    Log(SevTrace, std::string("SDRUnitsData=") + unitsText.text);
    unsigned units1 = SensorUnits1, base = BaseUnit, modifier = ModifierUnit, lin = Linearization,
             mLow = M & 0xFF, mTop = (M >> 2) & 0xC0, bLow = B & 0xFF, bTop = (B >> 2) & 0xC0,
             accuracy = 0, exponents = static_cast<unsigned>((RExp & 0x0F) << 4 | (BExp & 0x0F));
    scanned = std::sscanf(unitsText.text, "%x %x %x %x %x %x %x %x %x %x %x %x %x", &cc, &nextLow,
                          &nextHigh, &units1, &base, &modifier, &lin, &mLow, &mTop, &bLow, &bTop,
                          &accuracy, &exponents);
    SensorUnits1 = static_cast<uint8_t>(units1);
    BaseUnit = static_cast<uint8_t>(base);
    ModifierUnit = static_cast<uint8_t>(modifier);
    Linearization = static_cast<uint8_t>(lin);
    M = static_cast<uint16_t>((mLow & 0xFF) + (mTop & 0xC0) * 4);
    B = static_cast<uint16_t>((bLow & 0xFF) + (bTop & 0xC0) * 4);
    RExp = static_cast<uint8_t>((exponents >> 4) & 0x0F);
    BExp = static_cast<uint8_t>(exponents & 0x0F);
    // Written before the scan result is looked at, so a failed scan still
    // shows what the entry holds.
    LogF(SevDetail, "M = %u. B = %u. Rexp = %u. Bexp = %u. Lin = %u", M, B, RExp, BExp,
         Linearization);
    if (scanned == EOF) {
        Log(SevError, "Error reading data file for SDRUnitsData.");
        return 1;
    }

    // String: cc, next record ID, type/length, then up to 16 characters.
    const Piece<SDRStringTextSize> stringText(idString);
    Log(SevTrace, std::string("SDRStringData=") + stringText.text);
    unsigned typeLength = IDStringTypeLength;
    unsigned chars[kIDStringChars] = {};
    scanned =
        std::sscanf(stringText.text, "%x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x",
                    &cc, &nextLow, &nextHigh, &typeLength, &chars[0], &chars[1], &chars[2],
                    &chars[3], &chars[4], &chars[5], &chars[6], &chars[7], &chars[8], &chars[9],
                    &chars[10], &chars[11], &chars[12], &chars[13], &chars[14], &chars[15]);
    for (size_t i = 0; i < kIDStringChars; ++i) {
        tempIDString[i] = static_cast<char>(chars[i]);
    }
    IDStringTypeLength = static_cast<uint8_t>(typeLength);
    if (scanned == EOF) {
        Log(SevError, "Error reading data file for SDRIDStringData.");
        return 1;
    }
    Log(SevTrace, std::string("tempIDString=") + tempIDString);
    LogF(SevTrace, "strlen(SDRstring) = %zu", strlen(stringText.text));

    // The ID string ends at the first character that is not a letter, digit,
    // blank, "." or "_": padding (FFh, zeros) and suffixes such as "-1" go.
    // The type/length byte is not trusted to cut it.
    CopyOut(IDString, kIDStringChars, tempIDString);
    size_t kept = 0;
    while (kept < kIDStringChars && KeptInIDString(IDString[kept])) {
        ++kept;
    }
    IDString[kept] = '\0';

    Log(SevDetail, std::string("this->IDString=") + IDString);
    LogF(SevDetail, "Results of ScanSDRDataFile:  %u %u %u %u %u %u %u %u %u %u %u %u", RecordIDLow,
         RecordIDHigh, SDRVersion, RecordType, RecordLength, SensorNumber, EntityID, EntityInstance,
         SensorUnits1, BaseUnit, ModifierUnit, IDStringTypeLength);
    Log(SevTrace, "IPMISDREntry::ScanSDRDataFile() function completed.");
    return 0;
}

SensorConversion IPMISDREntry::Conversion() const {
    SensorConversion c;
    c.RecordType = RecordType;
    c.SensorUnits1 = SensorUnits1;
    c.BaseUnit = BaseUnit;
    c.ModifierUnit = ModifierUnit;
    c.Linearization = Linearization;
    c.M = M;
    c.B = B;
    c.RExp = RExp;
    c.BExp = BExp;
    return c;
}

} // namespace ipmisel
