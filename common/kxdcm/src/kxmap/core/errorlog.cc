// SPDX-License-Identifier: BSD-3-Clause
// The module's logger and the collection of parse errors.
#include <iostream> // first: its streams are ready before the objects below are made

#include "kxmap.h"

OFLogger logger = OFLog::getLogger("orvo.qdcm.kxmap");
std::string errorlogs;
char errorMsgEmpty[1] = {'\0'};

void error(std::string msg)
{
    OFLOG_ERROR(logger, msg);
    // Deliberate: messages that end in a line feed of their own are followed by an empty line.
    msg += '\n';
    errorlogs += msg;
}
