// The sections of a scenario document, each read by its own file: the
// platform answers and SMBIOS structures (ScenarioPlatform.cpp), and per node
// the SEL (ScenarioSel.cpp), the SDR repository (ScenarioSdr.cpp), the FRU
// devices (ScenarioFru.cpp), the auxiliary log (ScenarioAux.cpp) and the
// answers to other requests: canned, I2C, faults, transcript (ScenarioOem.cpp).
// Scenario.cpp puts them together.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/sim/FieldReader.h"
#include "host/sim/SimBmc.h"

namespace ipmisel::sim::scenario {

// The platform keys of the top-level object, in `top`.
void readPlatform(const ValueReader& values, FieldReader& top, Scenario& s);

// A node section: its value and place in the document, and the node it fills.
using Section = void (*)(const ValueReader&, const json&, const std::string&, NodeSetup&);
void parseSel(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node);
void parseSdr(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node);
void parseFru(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node);
void parseAuxLog(const ValueReader& values, const json& v, const std::string& place,
                 NodeSetup& node);
void parseI2c(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node);
void parseOem(const ValueReader& values, const json& v, const std::string& place, NodeSetup& node);
void parseFaults(const ValueReader& values, const json& v, const std::string& place,
                 NodeSetup& node);
void parseTranscript(const ValueReader& values, const json& v, const std::string& place,
                     NodeSetup& node);

// The "records" list of a SEL or SDR. entry(value, place, id) builds one
// record, `id` being the record ID it takes when none is given: the previous
// record's + 1, the first's 1. Reserved and duplicate record IDs are refused,
// since a walk by next-record ID would go round in circles.
using RecordEntry = std::function<std::vector<uint8_t>(const json&, const std::string&, uint16_t)>;
void readRecords(FieldReader& f, std::vector<std::vector<uint8_t>>& records,
                 const RecordEntry& entry);

} // namespace ipmisel::sim::scenario
