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

// Writes the entries that the log of the running send has collected. Called before every wait for
// the network: whoever reads the log while the library waits sees all of it.
void flush_log() noexcept;

}  // namespace ovrmail::log
