// A terminal of the test's own: the program runs on it, and what it draws is taken apart.
#pragma once

#include "run_program.h"

#include <pty.h>
#include <sys/ioctl.h>

namespace TestSupport {

struct Terminal
{
    Terminal(const TempFolder &folder, const std::string &line, const char *type, const char *locale,
             int columns, int rows)
    {
        winsize size = sizeOf(columns, rows);
        Id = forkpty(&Master, nullptr, nullptr, &size);
        if (Id != 0) return;
        setenv("TERM", type, 1);
        setenv("LC_ALL", locale, 1);
        const std::string command =
            "cd " + folder.path().string() + " && exec " + std::string(TESSEL_PROGRAM) + " " + line;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    ~Terminal() { close(Master); }

    static winsize sizeOf(int columns, int rows)
    {
        return {.ws_row = static_cast<unsigned short>(rows),
                .ws_col = static_cast<unsigned short>(columns),
                .ws_xpixel = 0,
                .ws_ypixel = 0};
    }

    void resize(int columns, int rows)
    {
        const winsize size = sizeOf(columns, rows);
        ioctl(Master, TIOCSWINSZ, &size);
    }

    // False: the program has ended, or a minute is over.
    bool readUntil(const std::function<bool()> &condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        char piece[4096];
        while (!condition() && std::chrono::steady_clock::now() < end) {
            const ssize_t length = read(Master, piece, sizeof piece);
            if (length <= 0) return condition();
            Seen.append(piece, static_cast<size_t>(length));
        }
        return condition();
    }

    int wait()
    {
        readUntil([] { return false; });
        int status = 0;
        waitpid(Id, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    int Master = -1;
    pid_t Id = 0;
    std::string Seen;
};

// The rows of a picture, without colours.
inline std::vector<std::string> rowsOf(const std::string &picture)
{
    std::vector<std::string> rows;
    for (size_t at = 0; at < picture.size(); ++at) {
        if (picture[at] != '\033') {
            if (rows.empty()) rows.emplace_back();
            rows.back() += picture[at];
            continue;
        }
        const size_t end = picture.find_first_of("Hm", at);
        if (picture[end] == 'H') rows.emplace_back();
        at = end;
    }
    return rows;
}

// The pictures that have been drawn whole.
inline std::vector<std::vector<std::string>> picturesIn(const std::string &seen)
{
    const std::string begin = "\033[?2026h", end = "\033[?2026l";
    std::vector<std::vector<std::string>> pictures;
    for (size_t at = seen.find(begin); at != seen.npos; at = seen.find(begin, at + 1)) {
        const size_t behind = seen.find(end, at);
        if (behind == seen.npos) break;
        pictures.push_back(rowsOf(seen.substr(at + begin.size(), behind - at - begin.size())));
    }
    return pictures;
}

// Of UTF-8 with signs of one column.
inline size_t columnsOf(const std::string &text)
{
    return static_cast<size_t>(std::ranges::count_if(text, [](char byte) { return (byte & 0xC0) != 0x80; }));
}

} // namespace TestSupport
