// SPDX-License-Identifier: BSD-3-Clause
// Standard error by its file descriptor, since C and C++ streams and libraries share nothing else; the logger by an
// appender.
#include "tool/rules/messagetap.h"

#include "tool/console/output.h"
#include "tool/system/memoryfile.h"

#include "kxmap.h"

#include <dcmtk/oflog/appender.h>
#include <dcmtk/oflog/spi/logevent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <sys/mman.h>
#include <unistd.h>

namespace kxtool {

namespace log4cplus = dcmtk::log4cplus;

class LogTap::Listener : public log4cplus::Appender {
public:
    explicit Listener(std::vector<std::string>& messages) : messages_(messages) {}
    ~Listener() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        messages_.emplace_back(event.getMessage().c_str());
    }

private:
    std::vector<std::string>& messages_;
};

LogTap::LogTap() : wasAdditive_(logger.getAdditivity()), level_(logger.getLogLevel()), appender_(new Listener(logged_))
{
    logger.addAppender(appender_);
    logger.setAdditivity(false);
    logger.setLogLevel(OFLogger::ERROR_LOG_LEVEL);
}

LogTap::~LogTap()
{
    logger.setLogLevel(level_);
    logger.setAdditivity(wasAdditive_);
    logger.removeAppender(appender_);
}

std::vector<std::string> LogTap::take(std::string_view printed)
{
    std::vector<std::string> messages;
    for (std::size_t begin = 0; begin < printed.size();) {
        const std::size_t end = std::min(printed.find('\n', begin), printed.size());
        messages.emplace_back(printed.substr(begin, end - begin));
        begin = end + 1;
    }
    std::ranges::move(logged_, std::back_inserter(messages));
    logged_.clear();
    return messages;
}

MessageTap::MessageTap()
    : caught_(memfd_create("messages", MFD_CLOEXEC)), before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
{
    if (!caught_.isOpen() || !before_.isOpen()) throw FileError("standard error", systemReason(errno));
    std::fflush(stderr);
    dup2(caught_.get(), STDERR_FILENO);
}

MessageTap::~MessageTap()
{
    dup2(before_.get(), STDERR_FILENO);
}

std::vector<std::string> MessageTap::take()
{
    return log_.take(takeContent(caught_.get()));
}

} // namespace kxtool
