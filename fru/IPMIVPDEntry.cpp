// Property sets of the FRU inventory and their instances.
#include "fru/IPMIVPDEntry.h"

#include "base/log.h"
#include "base/text.h"

using namespace NOXAQSV20;

namespace ipmisel {

namespace {

// Held as a string: GCC 12 misreads the assignment of a one-character
// literal into a map element as an overlapping copy.
const std::string kBlank = " ";

// The five properties every FRU carries, as IPMISELShowFRUData sets them from
// four board or product fields.
constexpr const char* kFieldProperties[] = {"Vendor", "FRUNumber", "PartNumber", "SerialNumber"};
constexpr size_t kFirstBoardField = 1;
constexpr size_t kFirstProductField = 0;

// The first status that is not success, or success when the instance was
// committed.
EQSVStatusCode WriteInstance(fdriIOHandle* io, const char* className,
                             const FRUProperties& properties) {
    EQSVStatusCode status = fdrGetInstance(io, className);
    for (auto it = properties.begin(); status == QSV_SUCCESS && it != properties.end(); ++it) {
        status = fdrAddProperty(io, it->first.c_str(), it->second.c_str());
    }
    return status == QSV_SUCCESS ? fdrAddInstance(io) : status;
}

void LogWriteFailure(const FRUProperties& properties, const std::string& statusText) {
    const auto name = properties.find("ElementName");
    std::string line = "IPMIFru encountered an error generating CIM instances for ";
    line += name != properties.end() ? name->second : std::string();
    line += " Error Code: ";
    line += statusText;
    Log(SevNotice, line);
}

} // namespace

FRUProperties& IPMIVPDEntry::NewPropertySet() {
    sets_.emplace_back();
    current_ = sets_.size() - 1;
    return sets_.back();
}

FRUProperties* IPMIVPDEntry::CurrentPropertySet() {
    return current_ ? &sets_[*current_] : nullptr;
}

EQSVStatusCode IPMIVPDEntry::IPMISELShowFRUData(const IPMIFRULocator& locator, bool boardFields) {
    Log(SevTrace, "IPMISel: Entering IPMISELShowFRUData");
    FRUProperties* properties = CurrentPropertySet();
    if (properties == nullptr) {
        return QSV_ERROR;
    }
    (*properties)["IdentifyingNumber"] = kBlank;
    const std::vector<std::string>& fields =
        boardFields ? locator.boardFields : locator.productFields;
    const size_t first = boardFields ? kFirstBoardField : kFirstProductField;
    for (size_t i = 0; i < std::size(kFieldProperties); ++i) {
        // An empty vector makes all four blank; a field that is there keeps
        // its text, even an empty one.
        const size_t at = first + i;
        (*properties)[kFieldProperties[i]] = at < fields.size() ? fields[at] : kBlank;
    }
    Log(SevTrace, "IPMISel: Exiting IPMISELShowFRUData");
    return QSV_SUCCESS;
}

uint32_t IPMIVPDEntry::GenerateCIMInstance(fdriIOHandle* io, const char* className) {
    Log(SevTrace, "Entering IPMIVPDEntry::GenerateCIMInstance");
    uint32_t added = 0;
    // A set that cannot be written is reported and left; the others are
    // still written (an instance left open is dropped by the framework when
    // the next one is opened).
    for (; written_ < sets_.size(); ++written_) {
        const FRUProperties& properties = sets_[written_];
        try {
            const EQSVStatusCode status = WriteInstance(io, className, properties);
            if (status == QSV_SUCCESS) {
                ++added;
            } else {
                LogWriteFailure(properties, TQSVStatusCode(status).TranslateStatusCode());
            }
        } catch (const TQSVException& e) {
            LogWriteFailure(properties, e.GetStatus().TranslateStatusCode());
        }
    }
    current_.reset();
    // The count in hexadecimal and the class spelled as it always has been,
    // whatever class was written: log readers search for this line.
    LogF(SevDetail, "Added %x instance of OXASG_IPMIFru", added);
    Log(SevTrace, "Exiting IPMIVPDEntry::GenerateCIMInstance");
    return added;
}

} // namespace ipmisel
