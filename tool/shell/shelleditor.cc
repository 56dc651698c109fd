// SPDX-License-Identifier: BSD-3-Clause
// Line editing by libedit. The history is kept where XDG_STATE_HOME says, and nowhere without it: what is typed here may
// hold patients' data.
#include "tool/shell/shelleditor.h"

#include "tool/console/output.h"
#include "tool/console/table.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <histedit.h>
#include <iostream>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kxtool {
namespace {

/// While this lives, multibyte characters of this thread are UTF-8. The process's locale stays as it is, since the engine
/// follows it.
class Utf8Scope {
public:
    Utf8Scope()
    {
        // Null, where the system lacks it, changes nothing.
        static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        before_ = uselocale(utf8);
    }
    ~Utf8Scope() { uselocale(before_); }
    Utf8Scope(const Utf8Scope&) = delete;
    Utf8Scope& operator=(const Utf8Scope&) = delete;

private:
    locale_t before_;
};

namespace fs = std::filesystem;

constexpr int kHistoryLines = 1000;
constexpr std::size_t kMostOffers = 40; // shown at once
constexpr const char* kPrompt = "kxmap> ";

fs::path historyFile()
{
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state == nullptr || *state != '/') return {}; // relative paths are to be ignored
    return fs::path(state) / "kxmap" / "history";
}

class PlainSource : public LineSource {
public:
    std::optional<std::string> next() override
    {
        std::string line;
        if (!std::getline(std::cin, line)) return std::nullopt;
        if (line.ends_with('\r')) line.pop_back();
        return line;
    }

    bool isInteractive() const override { return false; }
};

class TerminalSource : public LineSource {
public:
    explicit TerminalSource(Completer completer)
        : completer_(std::move(completer)), history_(history_init(), &history_end), file_(historyFile()),
          editor_(makeEditor(), &el_end)
    {
        if (!history_ || !editor_) throw FileError("the terminal", systemReason(ENOMEM));
        const Utf8Scope utf8; // libedit decides here which keys insert themselves
        HistEvent event = {};
        history(history_.get(), &event, H_SETSIZE, kHistoryLines);
        history(history_.get(), &event, H_SETUNIQUE, 1);
        if (!file_.empty()) history(history_.get(), &event, H_LOAD, file_.c_str());
        el_set(editor_.get(), EL_CLIENTDATA, this);
        el_set(editor_.get(), EL_PROMPT, &prompt);
        el_set(editor_.get(), EL_EDITOR, "emacs");
        // ^C empties the line instead of ending the shell with all its rules.
        el_set(editor_.get(), EL_SETTY, "-d", "-isig", nullptr);
        el_set(editor_.get(), EL_BIND, "^C", "em-kill-line", nullptr);
        el_set(editor_.get(), EL_HIST, &::history, history_.get());
        el_set(editor_.get(), EL_ADDFN, "kxmap-complete", "Complete a word", &onTab);
        el_set(editor_.get(), EL_BIND, "^I", "kxmap-complete", nullptr);
        el_set(editor_.get(), EL_BIND, "^R", "em-inc-search-prev", nullptr);
        el_source(editor_.get(), nullptr); // the user's ~/.editrc
    }

    std::optional<std::string> next() override
    {
        const Utf8Scope utf8; // libedit reads characters by the thread's locale
        int count = 0;
        const char* typed = el_gets(editor_.get(), &count);
        if (typed == nullptr || count <= 0) {
            printLine("");
            return std::nullopt;
        }
        std::string line(typed, static_cast<std::size_t>(count));
        while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
        if (!line.empty()) remember(line);
        return line;
    }

    bool isInteractive() const override { return true; }

private:
    static EditLine* makeEditor()
    {
        const Utf8Scope utf8;
        return el_init("kxmap", stdin, stdout, stderr);
    }

    static char* prompt(EditLine*)
    {
        static std::string text = kPrompt;
        return text.data();
    }

    static unsigned char onTab(EditLine* editor, int)
    {
        TerminalSource* self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return self->completeLine();
    }

    unsigned char completeLine()
    {
        const LineInfo* info = el_line(editor_.get());
        const std::string line(info->buffer, info->cursor);
        const Completion completion = completer_(line);
        const std::string typed = line.substr(completion.begin);
        if (completion.text != typed) {
            el_deletestr(editor_.get(), static_cast<int>(typed.size()));
            if (el_insertstr(editor_.get(), completion.text.c_str()) != 0) return CC_ERROR;
            return CC_REFRESH;
        }
        if (completion.offers.empty()) return CC_REFRESH_BEEP;
        showOffers(completion.offers);
        return CC_REDISPLAY;
    }

    static void showOffers(const std::vector<std::string>& offers)
    {
        printLine("");
        for (std::size_t index = 0; index < offers.size() && index < kMostOffers; ++index)
            printLine("  " + offers[index]);
        if (offers.size() > kMostOffers)
            printLine("  ... and " + std::to_string(offers.size() - kMostOffers) + " more");
        std::fflush(stdout);
    }

    void remember(const std::string& line)
    {
        HistEvent event = {};
        history(history_.get(), &event, H_ENTER, line.c_str());
        if (file_.empty()) return;
        std::error_code failure; // without a history the shell works as well
        fs::create_directories(file_.parent_path(), failure);
        const mode_t before = umask(077);
        history(history_.get(), &event, H_SAVE, file_.c_str());
        umask(before);
    }

    Completer completer_;
    std::unique_ptr<History, void (*)(History*)> history_;
    fs::path file_;
    std::unique_ptr<EditLine, void (*)(EditLine*)> editor_;
};

} // namespace

std::unique_ptr<LineSource> LineSource::make(Completer completer)
{
    if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1)
        return std::make_unique<TerminalSource>(std::move(completer));
    return std::make_unique<PlainSource>();
}

} // namespace kxtool
