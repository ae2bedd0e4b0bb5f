// Keeps errno and the error record over what a destructor does, so that the failure a caller is about to print is
// still the caller's.
#pragma once

#include <cerrno>

#include "lib/report.h"

class KeepReport
{
  public:
    KeepReport() = default;
    KeepReport(const KeepReport &) = delete;
    KeepReport &operator=(const KeepReport &) = delete;
    ~KeepReport()
    {
        NorvErr = record_;
        errno = errno_;
    }

  private:
    ErrorRecord record_ = NorvErr;
    int errno_ = errno;
};
