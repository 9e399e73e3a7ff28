// setting_findings.cpp - what eml_settings_check finds, kept and shown

#include "tools/zelieml/setting_findings.h"

#include <new>

#include "tools/zelieml/failure.h"
#include "tools/zelieml/locale_text.h"
#include "tools/zelieml/settings_file.h"

namespace zelieml::program
{

namespace
{

struct collector {
    eml_severity                 least;
    std::vector<setting_finding> findings;
    bool                         complete = true;
};

void collect(eml_finding const* found, void* user)
{
    collector& all = *static_cast<collector*>(user);
    if (found->severity < all.least) {
        return;
    }
    try {
        all.findings.push_back({found->line, found->field, found->severity, found->text});
    } catch (std::bad_alloc const&) {
        all.complete = false;  // the library must not meet it
    }
}

char const* name_of(eml_severity severity)
{
    return severity == eml_severity_error     ? "error"
           : severity == eml_severity_warning ? "warning"
                                              : "note";
}

}  // namespace

std::vector<setting_finding> find_in_settings(std::string const& workdir, eml_severity least)
{
    try {
        read_settings(workdir);
    } catch (failure const& unread) {
        return {{0, "", eml_severity_error, unread.what()}};
    }
    collector all = {least, {}};
    if (eml_settings_check(settings_path(workdir).c_str(), collect, &all) < 0 || !all.complete) {
        throw std::bad_alloc();
    }
    return all.findings;
}

json to_json(setting_finding const& found)
{
    return {{"line", found.line},
            {"key", found.key},
            {"severity", name_of(found.severity)},
            {"text", found.text}};
}

std::string line_of(setting_finding const& found)
{
    std::string where = found.line != 0 ? "line " + std::to_string(found.line) : "";
    where += where.empty() || found.key.empty() ? "" : ", ";
    where += found.key;
    where += where.empty() ? "" : ": ";
    return where + name_of(found.severity) + ": " + to_terminal(found.text);
}

}  // namespace zelieml::program
