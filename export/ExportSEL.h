// SEL records of one node to "OXASG_IPMILogRecord" instances.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "auxlog/AuxLog.h"
#include "host/framework.h"
#include "sdr/SDRCache.h"
#include "sel/IPMISELEntry.h"

namespace ipmisel {

// Scans slot i of selText into records[i] for i < count. 0 success, 1 failure.
int FillSELArray(NOXAQSV20::TCPluginCallbacks* cb, const char* selText, IPMISELEntry* records,
                 uint32_t count);

int ExportSEL(int32_t node, NOXAQSV20::TCPluginCallbacks* cb, NOXAQSV20::fdriIOHandle* io,
              const SDRCache& cache, IPMISELEntry* records, uint32_t count, int32_t recordOffset,
              const std::vector<AuxLogRecord>& auxRecords, NOXAQSV20::SPLibrary* library);

// How many distinct standard events one export keeps the decoding of (see
// docs/export.md); a repeat of one of them is not decoded again. 0 decodes
// every record afresh, which the tests compare against.
extern size_t g_decodedEventLimit;

// What "Message" says instead of the text when the OEM decoder of a C0h, C1h,
// E0h or E1h record reports a failure; null for every other record type.
const char* OEMDecoderFailureText(uint8_t recordType);

} // namespace ipmisel
