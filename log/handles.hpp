// handles.hpp - owners of an open trace ring and of an open mail log. Either may be null.
#pragma once

#include <memory>

#include "mail_log.h"
#include "trace.h"

namespace ovrmail::log {

struct CloseTrace {
    void operator()(TraceHandle* trace) const noexcept { Tclose(trace); }
};
using TracePtr = std::unique_ptr<TraceHandle, CloseTrace>;

struct CloseLog {
    void operator()(MailLogHandle* log) const noexcept { MailLogClose(log); }
};
using LogPtr = std::unique_ptr<MailLogHandle, CloseLog>;

}  // namespace ovrmail::log
