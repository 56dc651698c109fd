// SPDX-License-Identifier: BSD-3-Clause
// Standard error by its file descriptor, since C and C++ streams and libraries share nothing else; the logger by an
// appender.
#include "tool/messagetap.h"

#include "tool/output.h"

#include "kxmap.h"

#include <dcmtk/oflog/appender.h>
#include <dcmtk/oflog/spi/logevent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace kxtool {

namespace log4cplus = dcmtk::log4cplus;

class MessageTap::Listener : public log4cplus::Appender {
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

MessageTap::MessageTap()
    : caught_(memfd_create("messages", MFD_CLOEXEC)), before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)),
      wasAdditive_(logger.getAdditivity()), level_(logger.getLogLevel()), appender_(new Listener(logged_))
{
    if (caught_ < 0 || before_ < 0) {
        const int reason = errno;
        if (caught_ >= 0) close(caught_);
        if (before_ >= 0) close(before_);
        throw FileError("standard error", systemReason(reason));
    }
    std::fflush(stderr);
    dup2(caught_, STDERR_FILENO);
    logger.addAppender(appender_);
    logger.setAdditivity(false);
    logger.setLogLevel(OFLogger::ERROR_LOG_LEVEL);
}

MessageTap::~MessageTap()
{
    logger.setLogLevel(level_);
    logger.setAdditivity(wasAdditive_);
    logger.removeAppender(appender_);
    dup2(before_, STDERR_FILENO);
    close(before_);
    close(caught_);
}

std::vector<std::string> MessageTap::take()
{
    std::vector<std::string> messages;
    struct stat status = {};
    if (fstat(caught_, &status) == 0 && status.st_size > 0) {
        std::string text(static_cast<std::size_t>(status.st_size), '\0');
        const ssize_t count = pread(caught_, text.data(), text.size(), 0);
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        std::ignore = ftruncate(caught_, 0);
        std::ignore = lseek(caught_, 0, SEEK_SET);
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            messages.push_back(text.substr(begin, end - begin));
            begin = end + 1;
        }
    }
    for (std::string& message : logged_) messages.push_back(std::move(message));
    logged_.clear();
    return messages;
}

} // namespace kxtool
