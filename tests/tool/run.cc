// SPDX-License-Identifier: BSD-3-Clause
// The two ways to run kxmap.
#ifdef KXDCM_TOOL

#include "tool/run.h"

#include "tool/commands/run.h"
#include "tool/console/output.h"

#include <dcmtk/oflog/oflog.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wordexp.h>

namespace kxtest {
namespace {

namespace fs = std::filesystem;

class CurrentFolder {
public:
    explicit CurrentFolder(const fs::path& folder) : before_(fs::current_path()) { fs::current_path(folder); }
    ~CurrentFolder() { fs::current_path(before_); }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    fs::path before_;
};

/// The environment, with DICOM_VAR unset and other variables set while it lives.
class Environment {
public:
    explicit Environment(const Setting& setting)
    {
        keep("DICOM_VAR");
        unsetenv("DICOM_VAR");
        for (const auto& [name, value] : setting.environment) {
            keep(name);
            setenv(name, value.c_str(), 1);
        }
    }
    ~Environment()
    {
        for (; !before_.empty(); before_.pop_back()) { // the first value of each comes last
            const auto& [name, value] = before_.back();
            if (value) setenv(name, value->c_str(), 1);
            else unsetenv(name);
        }
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    void keep(const char* name)
    {
        const char* const value = std::getenv(name);
        before_.emplace_back(name, value == nullptr ? std::nullopt : std::optional<std::string>(value));
    }

    std::vector<std::pair<const char*, std::optional<std::string>>> before_;
};

/// One of the standard descriptors, which names another open file while it lives.
class Redirection {
public:
    /// @param descriptor closed here.
    Redirection(int standard, int descriptor) : standard_(standard), before_(fcntl(standard, F_DUPFD_CLOEXEC, 3))
    {
        dup2(descriptor, standard);
        close(descriptor);
    }
    ~Redirection()
    {
        dup2(before_, standard_);
        close(before_);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    std::string content() const
    {
        std::string all(static_cast<std::size_t>(lseek(standard_, 0, SEEK_END)), '\0');
        const ssize_t size = pread(standard_, all.data(), all.size(), 0);
        all.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return all;
    }

private:
    int standard_;
    int before_;
};

/// The process's streams and loggers, and what the engine keeps for all rules: at their beginnings for the run, and as
/// they were before when it is over.
class ProcessState {
public:
    ProcessState()
        : rootLevel_(OFLog::getLogger("").getLogLevel()), // the root's
          seed_(gseed), errors_(errorlogs)
    {
        flushAll();
        gseed = 0;
    }
    ~ProcessState()
    {
        kxtool::setVerbosity(kxtool::Verbosity::Quiet);
        OFLog::configure(static_cast<OFLogger::LogLevel>(rootLevel_));
        OFLog::getLogger("dcmtk.dcmdata").setLogLevel(dcmtk::log4cplus::NOT_SET_LOG_LEVEL);
        gseed = seed_;
        errorlogs = errors_;
        std::clearerr(stdout);
        std::clearerr(stdin);
        __fpurge(stdin);
        std::cin.clear();
    }
    ProcessState(const ProcessState&) = delete;
    ProcessState& operator=(const ProcessState&) = delete;

    static void flushAll()
    {
        std::cout.flush();
        std::fflush(stdout);
        std::fflush(stderr);
    }

private:
    int rootLevel_;
    unsigned seed_;
    std::string errors_;
};

/// The words that a shell makes of a text.
class Words {
public:
    explicit Words(const std::string& text) : status_(wordexp(text.c_str(), &words_, WRDE_NOCMD)) {}
    ~Words()
    {
        if (areAll()) wordfree(&words_);
    }
    Words(const Words&) = delete;
    Words& operator=(const Words&) = delete;

    /// @return not when it takes a shell to make something of the text.
    bool areAll() const { return status_ == 0; }
    std::span<const char* const> get() const { return {words_.we_wordv, words_.we_wordc}; }

private:
    wordexp_t words_ = {};
    int status_;
};

ToolRun call(std::span<const char* const> words, const Setting& setting)
{
    const Environment environment(setting);
    const ProcessState state;
    const char* const file = setting.input.empty() ? "/dev/null" : setting.input.c_str();
    const Redirection input(STDIN_FILENO, open(file, O_RDONLY | O_CLOEXEC));
    const Redirection output(STDOUT_FILENO, memfd_create("output", MFD_CLOEXEC));
    const Redirection errors(STDERR_FILENO, memfd_create("errors", MFD_CLOEXEC));
    const int exitCode = kxtool::runKxmap(words);
    ProcessState::flushAll();
    return {exitCode, output.content(), errors.content()};
}

} // namespace

ToolRun runTool(const fs::path& folder, const std::string& arguments, const Setting& setting)
{
    std::optional<CurrentFolder> current(folder); // where names are sought
    const Words words("kxmap " + arguments);
    if (words.areAll()) return call(words.get(), setting);
    current.reset();
    return runTool(folder, arguments, std::string());
}

ToolRun runTool(const fs::path& folder, const std::string& arguments, const std::string& prelude)
{
    const fs::path log = folder.native() + ".log";
    const std::string output = log.native() + ".out";
    const std::string errors = log.native() + ".err";
    const std::string command = "cd '" + folder.native() + "'; unset DICOM_VAR; " + prelude + " '" KXDCM_TOOL "' " +
                                arguments + " >'" + output + "' 2>'" + errors + "'";
    const int status = std::system(command.c_str());
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(output), contentOf(errors)};
    fs::remove(output);
    fs::remove(errors);
    return run;
}

} // namespace kxtest

#endif
