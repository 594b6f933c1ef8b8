// The auxiliary debug log some BMCs keep beside the SEL: firmware status codes
// with extended data, read in chunks into 256-byte slots, decoded into
// readable records and exported on their own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/framework.h"
#include "sel/IPMISELEntry.h"

namespace ipmisel {

// One entry as the BMC sent it: 10 header bytes then the body.
struct s_AuxLog_entry {
    uint8_t data[256];
};

// Layout of a slot (numbers least significant byte first).
enum : uint32_t {
    kAuxSlotSize = 256,
    kAuxHeaderSize = 10,                          // bytes 0..9
    kAuxBodyRoom = kAuxSlotSize - kAuxHeaderSize, // body bytes a slot can keep
    kAuxExtendedStart = 32,                       // extended data within the slot
    kAuxExtendedRoom = kAuxSlotSize - kAuxExtendedStart,
    kAuxFixedBodySize = kAuxExtendedStart - kAuxHeaderSize, // 22 body bytes before it
    kAuxTypeDebugCode = 3,
};

// Our maker's IANA enterprise number 00A3C1h, as sent and stored.
inline constexpr uint8_t kAuxManufacturerID[3] = {0xC1, 0xA3, 0x00};

// True when bytes 0..2 name our maker: only such entries are decoded or exported.
bool IsOwnAuxEntry(const s_AuxLog_entry& slot);
// Body length as the entry states it (bytes 3, 4); may exceed what a slot keeps.
uint32_t AuxBodyLength(const s_AuxLog_entry& slot);
// Record ID of the SEL record the entry belongs to (bytes 5, 6).
uint16_t AuxRecordID(const s_AuxLog_entry& slot);

class IPMIRequestAuxLog {
  public:
    explicit IPMIRequestAuxLog(NOXAQSV20::SPLibrary* library);
    // One per node, shared by owner pointer; a copy would share nothing useful.
    IPMIRequestAuxLog(const IPMIRequestAuxLog&) = delete;
    IPMIRequestAuxLog& operator=(const IPMIRequestAuxLog&) = delete;
    // 0 success, 1 failure; count is set to 0 first.
    int IPMIGetAuxLogStatus(uint32_t& count);
    // 0 when the pass ran to its end (single entries may be skipped), 1 when
    // the BMC answered a non-zero completion code.
    int IPMIReadExtendedData(s_AuxLog_entry* slots, uint32_t count);

    // Chunk size of the body reads; the last chunk is whatever remains.
    static constexpr uint8_t kChunkSize = 25;

  private:
    // Lays the request out in the template (01 20 netfn 00 cmd, data length as
    // 32-bit little endian, data from byte 9), copies it into the buffer and
    // sets the length to 256.
    void Build(uint8_t netFn, uint8_t cmd, const uint8_t* data, uint8_t count);
    void BuildRead(uint32_t entry, uint8_t offset, uint8_t readLength);
    bool Send();
    // Response data bytes the BMC actually sent (0..247, whatever length says).
    uint32_t DataLength() const;
    // Response data byte n, or 0 when the BMC did not send it.
    uint8_t Data(uint32_t n) const;
    void LogRequest(uint32_t bytes, const char* suffix) const;
    void LogResponse(const char* label) const;
    void LogCompletionCode() const;

    uint8_t netFn_ = 0, lun_ = 0, cmd_ = 0;
    NOXAQSV20::SPLibrary* library_;
    uint8_t template_[20] = {};
    uint8_t buffer_[256] = {};
    int32_t length_ = 256;
};

class AuxLogRecord {
  public:
    AuxLogRecord();
    void SetRecordID(uint8_t low, uint8_t high);
    void SetType(uint8_t type);
    void SetSeverity(uint8_t severity);
    void SetOperation(uint8_t b14, uint8_t b15);
    void SetSubClass(uint8_t subClass);
    void SetClass(uint8_t cls); // names the sub-class already stored
    void SetInstance(const uint8_t* bytes4);
    void SetCallerID(const uint8_t* bytes10);
    void SetExtendedData(const std::string& text);

    std::string GetTypeName() const { return typeName_; }
    std::string GetSeverityName() const { return severityName_; }
    std::string GetOperationText() const { return operationText_; }
    std::string GetSubClassName() const { return subClassName_; }
    std::string GetClassName() const { return className_; }
    std::string GetInstanceText() const { return instanceText_; }
    std::string GetCallerIDText() const { return callerIDText_; }
    std::string GetExtendedData() const { return extendedData_; }
    uint16_t GetRecordID() const { return recordID_; }

  private:
    uint8_t type_ = 0, severity_ = 0, subClass_ = 0, class_ = 0;
    uint8_t operation_[2] = {}, instance_[4] = {}, callerID_[10] = {};
    std::string typeName_, severityName_, operationText_, subClassName_, className_, instanceText_,
        callerIDText_, extendedData_;
    uint16_t recordID_ = 0;
};

void ParseExtendedSELData(std::vector<AuxLogRecord>& records, const s_AuxLog_entry* slots,
                          uint32_t count);

// One "OXASG_VTXAuxDebugRecord" per debug-code entry that belongs to a SEL
// record of this node.
void ExportAuxDebugLog(NOXAQSV20::SPLibrary* library, NOXAQSV20::fdriIOHandle* io,
                       const s_AuxLog_entry* slots, uint32_t count, IPMISELEntry* sel,
                       uint32_t selCount);

} // namespace ipmisel
