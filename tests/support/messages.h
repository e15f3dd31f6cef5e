/*
 * Test support: every report the base library makes while a Messages object
 * is alive, kept as level, code and text, so a test can check both that a
 * refusal was reported and what it said.
 */
#ifndef TOLV_TESTS_SUPPORT_MESSAGES_H
#define TOLV_TESTS_SUPPORT_MESSAGES_H

#include <string>
#include <vector>

#include "keel.h"

namespace tolv_test {

struct Messages {
    struct Line {
        int level;
        int code;
        std::string text;
    };
    std::vector<Line> lines;

    Messages() { KEELDEBUG_SetMessageHandler(Collect, this); }
    ~Messages() { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;

    /* True when some report's text holds `part`. */
    bool Has(const std::string &part) const
    {
        for (const Line &l : lines)
            if (l.text.find(part) != std::string::npos)
                return true;
        return false;
    }
    /* Every report as "level code text", one a line, for failure output. */
    std::string All() const
    {
        std::string s;
        for (const Line &l : lines)
            s += std::to_string(l.level) + " " + std::to_string(l.code) + " " +
                 l.text + "\n";
        return s;
    }
    void Clear() { lines.clear(); }

  private:
    static void Collect(int level, int code, const char *text, void *self)
    {
        static_cast<Messages *>(self)->lines.push_back({level, code, text});
    }
};

} // namespace tolv_test

#endif
