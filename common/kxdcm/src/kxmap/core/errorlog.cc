// SPDX-License-Identifier: BSD-3-Clause
// The module's logger and the collection of parse errors.
#include "kxmap.h"

#include <ios>

// Static objects of a server may parse and apply: so these are made before all that have no priority of their own, and
// destroyed after them. 101 is the first priority that is not the compiler's.
#define KXDCM_FIRST __attribute__((init_priority(101)))

namespace {
KXDCM_FIRST const std::ios_base::Init streams;
} // namespace

KXDCM_FIRST OFLogger logger = OFLog::getLogger("orvo.qdcm.kxmap");
KXDCM_FIRST std::string errorlogs;
char errorMsgEmpty[1] = {'\0'};

void error(std::string msg)
{
    OFLOG_ERROR(logger, msg);
    // Deliberate: messages that end in a line feed of their own are followed by an empty line.
    msg += '\n';
    errorlogs += msg;
}
