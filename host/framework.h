// The diagnostics framework's services as the plug-in sees them: the plug-in
// library (registration, instances, log), the core library (date-time, OS facts,
// core logger, status codes), the service-processor library (raw IPMI to one BMC
// node) and the SMBIOS library. The names and argument orders are the
// framework's own; nothing here tells which backend answers them.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace NOXAQSV20 {

typedef int32_t EQSVStatusCode;

// Status codes the plug-in and the host agree on.
enum : EQSVStatusCode {
    QSV_SUCCESS = 0,
    QSV_ERROR = 3,         // a framework call failed; also "SMBIOS read failed"
    QSV_NO_MORE_DATA = 5,  // SMBIOS: no more structures of the type
    QSV_INVALID_TIME = 21, // a time that cannot be converted
};

enum EQSVLogSeverity {
    QSV_LOG_ERROR = 0,   // a send that failed, memory, registration
    QSV_LOG_FAILURE = 1, // IPMI errors and anything that loses data
    QSV_LOG_NOTICE = 2,  // a default was used
    QSV_LOG_DETAIL = 3,  // progress, conversion parameters, byte dumps
    QSV_LOG_TRACE = 4,   // entered/completed lines
};

class TQSVStatusCode {
  public:
    TQSVStatusCode(EQSVStatusCode code = QSV_SUCCESS) : code_(code) {}
    EQSVStatusCode GetCode() const { return code_; }
    operator EQSVStatusCode() const { return code_; }
    const std::string& TranslateStatusCode() const;

  private:
    EQSVStatusCode code_;
};

class TQSVException : public std::exception {
  public:
    explicit TQSVException(TQSVStatusCode status) : status_(status) {}
    const TQSVStatusCode& GetStatus() const { return status_; }
    const char* what() const noexcept override { return status_.TranslateStatusCode().c_str(); }

  private:
    TQSVStatusCode status_;
};

// A CIM date-time: either an absolute time with a UTC offset in minutes
// ("yyyymmddhhmmss.mmmmmm+ooo") or an interval ("ddddddddhhmmss.mmmmmm:000"),
// which is what the difference of two absolute values yields.
class TCIMDateTime {
  public:
    TCIMDateTime();
    // Interval: days, hours, minutes, seconds, microseconds.
    void Set(uint32_t days, uint16_t hours, uint16_t minutes, uint16_t seconds,
             uint32_t microseconds);
    // Absolute: year, month, day, hour, minute, second, microseconds, UTC offset.
    void Set(uint16_t year, uint16_t month, uint32_t day, uint16_t hour, uint16_t minute,
             uint16_t second, uint32_t microseconds, int16_t utcOffset);
    std::string ToString() const;
    uint16_t GetUTCOffset() const { return static_cast<uint16_t>(utcOffset_); }
    bool IsInterval() const { return interval_; }
    // Absolute: microseconds since 1970-01-01 00:00 UTC; interval: its length.
    int64_t Microseconds() const;

    TCIMDateTime operator-(const TCIMDateTime& other) const;
    bool operator<(const TCIMDateTime& other) const;

  private:
    bool interval_ = false;
    uint32_t year_ = 1970, month_ = 1, day_ = 1, hour_ = 0, minute_ = 0, second_ = 0;
    uint32_t microseconds_ = 0;
    int16_t utcOffset_ = 0;
};

class TOSSpecific {
  public:
    static std::string GetMachineType();
    static std::string GetMachineTypeFromID();
    static std::string GetBiosID();
    static TCIMDateTime GetLocalTime();
};

class ILogger {
  public:
    virtual ~ILogger() = default;
    virtual void LogMessage(uint32_t messageClass, const std::string& text) = 0;
};

class IIPMILan {
  public:
    virtual ~IIPMILan() = default;
    virtual bool getipmiLanStatus() = 0;
};

class TRootObject {
  public:
    static ILogger* GetCoreLogger();
    static IIPMILan* GetipmiLanIns();
};

// Raw IPMI to one BMC node. sendIPMICommand takes the request laid out in
// buffer bytes 0..14 (01, 20h, netfn, LUN, cmd, data length as 32-bit little
// endian in 5..8, data from 9) and writes back the completion code at bytes 4
// and 8 and the response data from byte 9; *length becomes the number of
// response data bytes after the completion code. Nothing is written at or past
// capacity.
class SPLibrary {
  public:
    static SPLibrary* GetSplibraryInstance(int32_t node);
    int32_t GetNumberBMCNode();
    bool IsIPMIDriversPresent();
    bool IsiBMCMachine();
    bool sendIPMICommand(unsigned char* buffer, int32_t* length, int32_t capacity, bool flag);

    explicit SPLibrary(int32_t node) : node_(node) {}
    int32_t Node() const { return node_; }

  private:
    int32_t node_;
};

// Opaque framework objects the plug-in only passes back.
class TCPluginCallbacks;
class TPluginManagerProvider;
class fdriIOHandle;
class TCIMValueArray;

struct PluginInfo {
    const char* name;
    const char* version;
    const char* version2;
    uint32_t flags;
};

typedef TQSVStatusCode (*fdrInitializeFn)(TCPluginCallbacks*);
typedef TQSVStatusCode (*fdrTerminateFn)();
typedef TQSVStatusCode (*fdrCollectFn)(TCPluginCallbacks*, fdriIOHandle*, const char** classes,
                                       int32_t classCount);
typedef PluginInfo (*fdrGetInfoFn)();

struct fdrPluginCallbacks {
    uint32_t size;
    fdrInitializeFn initialize;
    fdrTerminateFn terminate;
    fdrCollectFn collect;
    fdrGetInfoFn getInfo;
    void* reserved;
};

TQSVStatusCode fdrRegisterPlugin(fdrPluginCallbacks* callbacks, TCPluginCallbacks** host);
EQSVStatusCode fdrGetHandle(TCPluginCallbacks* host, TPluginManagerProvider** provider);
EQSVStatusCode fdrGetPluginPath(TCPluginCallbacks* host, const char** path);
EQSVStatusCode fdrGetInstance(fdriIOHandle* io, const char* className);
EQSVStatusCode fdrAddProperty(fdriIOHandle* io, const char* name, const char* value);
EQSVStatusCode fdrAddDateTimeProperty(fdriIOHandle* io, const char* name, TCIMDateTime* value);
EQSVStatusCode fdrSetDateTime(TCIMDateTime* value, uint16_t year, uint16_t month, uint32_t day,
                              uint16_t hour, uint16_t minute, uint16_t second,
                              uint32_t microseconds, int16_t utcOffset);
EQSVStatusCode fdrNewCIMValueArray(TCIMValueArray** array);
EQSVStatusCode fdrArrayAddUint8(TCIMValueArray* array, uint8_t value);
EQSVStatusCode fdrAddArrayProperty(fdriIOHandle* io, const char* name, TCIMValueArray* array);
EQSVStatusCode fdrDeleteCIMValueArray(TCIMValueArray* array);
EQSVStatusCode fdrAddInstance(fdriIOHandle* io);
void fdrWriteLog(EQSVLogSeverity severity, const char* text);

typedef void* SMBIOSHANDLE;
TQSVStatusCode smBiosLoad(TPluginManagerProvider* provider, SMBIOSHANDLE* handle);
TQSVStatusCode smBiosGetFirst(SMBIOSHANDLE handle, int32_t type, unsigned char* buffer,
                              uint32_t* size);
TQSVStatusCode smBiosGetNext(SMBIOSHANDLE handle, unsigned char* buffer, uint32_t* size);
TQSVStatusCode smBiosClose(SMBIOSHANDLE* handle);

} // namespace NOXAQSV20
