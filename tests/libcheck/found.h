// found.h - what a check finds, as lines of text, and what docs/CHECKS.md says of it

#ifndef ZELIEML_TESTS_LIBCHECK_FOUND_H
#define ZELIEML_TESTS_LIBCHECK_FOUND_H

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "zelieml_ext.h"

namespace zelieml::test
{

inline std::string name_of(eml_severity severity)
{
    char const* const names[] = {"none", "note", "warning", "error"};
    return names[severity];
}

struct found {
    eml_severity severity;
    int          line;
    std::string  field;
    std::string  text;
};

// "error 3 body: what is wrong"; without the line when there is none.
inline std::string in_a_line(found const& f)
{
    return name_of(f.severity) + (f.line != 0 ? " " + std::to_string(f.line) : "") +
           (f.field.empty() ? "" : " " + f.field) + ": " + f.text;
}

// A callback of the checks; user is a std::vector<found>.
inline void keep(eml_finding const* finding, void* user)
{
    EXPECT_EQ(finding->struct_size, sizeof *finding);
    static_cast<std::vector<found>*>(user)->push_back(
        {finding->severity, finding->line, finding->field, finding->text});
}

inline eml_severity worst_of(std::vector<found> const& all)
{
    eml_severity worst = eml_severity_none;
    for (found const& f : all) {
        worst = f.severity > worst ? f.severity : worst;
    }
    return worst;
}

inline std::vector<std::string> in_lines(std::vector<found> const& all)
{
    std::vector<std::string> lines;
    for (found const& f : all) {
        lines.push_back(in_a_line(f));
    }
    return lines;
}

// Whether a sentence is as the documents give it, where "..." is any text.
inline bool is_like(std::string const& text, std::string const& pattern)
{
    std::size_t const gap = pattern.find("...");
    if (gap == std::string::npos) {
        return text == pattern;
    }
    std::string const before = pattern.substr(0, gap);
    std::string const after  = pattern.substr(gap + 3);
    return text.size() >= before.size() + after.size() && text.find(before) == 0 &&
           text.compare(text.size() - after.size(), after.size(), after) == 0;
}

// A row of a table in docs/CHECKS.md.
struct documented {
    std::string severity;
    std::string sentence;
};

// The rows of the chapter with this heading.
inline std::vector<documented> documented_findings(std::string const& heading)
{
    std::string const document = read_file(ZELIEML_DOCS "/CHECKS.md");
    std::size_t const begin    = document.find("\n## " + heading + "\n");
    std::size_t const end      = document.find("\n## ", begin + 1);
    EXPECT_NE(begin, std::string::npos) << heading;

    std::vector<documented> rows;
    std::string const       chapter = document.substr(begin, end - begin);
    for (std::size_t row = chapter.find("\n| "); row != std::string::npos;
         row             = chapter.find("\n| ", row + 1)) {
        std::size_t const bar   = chapter.find(" | ", row + 1);
        std::size_t const open  = chapter.find('`', bar);
        std::size_t const close = chapter.find('`', open + 1);
        if (open < chapter.find('\n', row + 1)) {
            rows.push_back({chapter.substr(row + 3, bar - row - 3),
                            chapter.substr(open + 1, close - open - 1)});
        }
    }
    return rows;
}

// Holds the chapter to what the cases find: each finding is in it, and each row was found.
inline void expect_documented(std::string const& heading, std::vector<found> const& all)
{
    std::vector<documented> const rows = documented_findings(heading);
    std::vector<bool>             met(rows.size());
    for (found const& f : all) {
        bool known = false;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].severity.find(name_of(f.severity)) != std::string::npos &&
                is_like(f.text, rows[i].sentence)) {
                known  = true;
                met[i] = true;
            }
        }
        EXPECT_TRUE(known) << "not in docs/CHECKS.md: " << in_a_line(f);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_TRUE(met[i]) << "in docs/CHECKS.md, and no case finds it: " << rows[i].sentence;
    }
}

}  // namespace zelieml::test

#endif
