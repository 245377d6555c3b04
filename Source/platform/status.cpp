// SPDX-License-Identifier: Apache-2.0
#include "status.h"

#include <cerrno>

#include "perform.h"

namespace tovix::platform {

int errno_of(IOReturn status) noexcept {
    static constexpr struct {
        IOReturn status;
        int number;
    } kMeanings[] = {
        {kIOReturnNoMemory, ENOMEM},
        {kIOReturnNoDevice, ENODEV},
        {kIOReturnBadArgument, EINVAL},
        {kIOReturnExclusiveAccess, EBUSY},
        {kIOReturnUnsupported, EOPNOTSUPP},
        {kIOReturnNotOpen, EBADF},
        {kIOReturnBusy, EBUSY},
        {kIOReturnNotPermitted, EACCES},
        {kIOReturnOverrun, EOVERFLOW},
        {kIOReturnUnderrun, EBADMSG},
        {kIOReturnAborted, ECANCELED},
        {kIOReturnNotFound, ENOENT},
        {kIOUSBPipeStalled, EPIPE},
        {kIOUSBTransactionTimeout, ETIMEDOUT},
        {kIOUSBUnknownPipeErr, ENXIO},
    };
    for (const auto& meaning : kMeanings) {
        if (meaning.status == status) return meaning.number;
    }
    return EIO;
}

}  // namespace tovix::platform
