// The plug-in's log: every line goes to the framework's fdrWriteLog.
#pragma once

#include <string>

#include "host/framework.h"

namespace ipmisel {

enum Severity {
    SevError = NOXAQSV20::QSV_LOG_ERROR,
    SevFailure = NOXAQSV20::QSV_LOG_FAILURE,
    SevNotice = NOXAQSV20::QSV_LOG_NOTICE,
    SevDetail = NOXAQSV20::QSV_LOG_DETAIL,
    SevTrace = NOXAQSV20::QSV_LOG_TRACE,
};

void Log(int severity, const char* text);
void Log(int severity, const std::string& text);
void LogF(int severity, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

} // namespace ipmisel
