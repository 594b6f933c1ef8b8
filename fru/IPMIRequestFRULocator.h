// Finding a BMC node's FRUs: a walk of the SDR repository that keeps every
// FRU device locator record, and Read FRU Data for one locator's device. The
// walk is its own: it does not use the sensor records' SDR cache.
#pragma once

#include <cstdint>
#include <vector>

#include "fru/IPMIFRULocator.h"
#include "ipmi/IPMIRequestFrame.h"

namespace ipmisel {

// IPMIGetSDRHeader's answers.
enum : int {
    kFRUHeaderRead = 0,
    kFRUHeaderFailed = 1,
    kFRUHeaderNotLocator = 2,
};

// The FRU requests travel in a 312-byte buffer.
class IPMIRequestFRULocator : public BasicRequestFrame<312> {
  public:
    uint8_t reservationID[2] = {0, 0};   // high, low
    uint8_t currentRecordID[2] = {0, 0}; // high, low
    uint8_t nextRecordID[2] = {0, 0};    // high, low

    explicit IPMIRequestFRULocator(NOXAQSV20::SPLibrary* library) : BasicRequestFrame(library) {}

    // 0 success, 1 failure.
    int IPMIReserveSDR();
    // The first 15 bytes of the record currentRecordID names; sets
    // nextRecordID. kFRUHeaderNotLocator for any record type but 11h.
    int IPMIGetSDRHeader(IPMIFRULocator& locator);
    // The ID string of the same record. 0 success, 1 failure.
    int IPMIGetSDRString(IPMIFRULocator& locator);
    // Appends every FRU locator of the repository, in repository order.
    // 0 when the walk reached the end, 1 when a request failed (the locators
    // found before stay).
    int IPMIGetSDREntry(std::vector<IPMIFRULocator>& locators);
    // The first 528 bytes of FRU data of the locator's device (of device 0
    // when `deviceZero` is set), in 16-byte reads. 0 when every read
    // succeeded; after a failure the bytes read so far stay and the rest is 0.
    int IPMIGetFRUData(IPMIFRULocator& locator, bool deviceZero);
    // Trace of the locators and their first 256 bytes of FRU data.
    void printFRUVector(const std::vector<IPMIFRULocator>& locators) const;

    // Reads per device and bytes per read.
    static constexpr int kFRUReads = 33;
    static constexpr uint8_t kFRUReadSize = 16;

  private:
    bool SendStorageRequest(uint8_t cmd, const uint8_t* data, uint8_t count,
                            const char* sendFailure);
    bool CompletionCodeFailed(const char* prefix, int severity) const;
    void LogResponse() const;
    uint8_t headerRecordID_[2] = {0, 0}; // the record's own ID, high, low
};

} // namespace ipmisel
