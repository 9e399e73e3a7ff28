// setting_findings.h - what eml_settings_check finds, kept and shown

#ifndef ZELIEML_TOOLS_ZELIEML_SETTING_FINDINGS_H
#define ZELIEML_TOOLS_ZELIEML_SETTING_FINDINGS_H

#include <string>
#include <vector>

#include "tools/zelieml/output.h"
#include "zelieml_ext.h"

namespace zelieml::program
{

struct setting_finding {
    int          line;  // 0: none in particular
    std::string  key;   // or empty
    eml_severity severity;
    std::string  text;
};

// find_in_settings - the findings in the settings of a work directory, of this severity and worse
//
// A file that cannot be read is one of them. Throws std::bad_alloc.
std::vector<setting_finding> find_in_settings(std::string const& workdir, eml_severity least);

// to_json - line, key, severity and text
json to_json(setting_finding const& found);

// line_of - a finding for a terminal: "line 3, smtp_auth: error: ..."
std::string line_of(setting_finding const& found);

}  // namespace zelieml::program

#endif
