// findings.h - what a check finds, and whom it tells

#ifndef ZELIEML_LIBCHECK_FINDINGS_H
#define ZELIEML_LIBCHECK_FINDINGS_H

#include <cstddef>

#include "zelieml_ext.h"

namespace zelieml
{

using finding_proc = void (*)(eml_finding const* finding, void* user);

class findings
{
public:
    findings(finding_proc proc, void* user) : proc_(proc), user_(user) {}

    // at - where the next findings are; as in eml_finding
    //
    // field  the string is not copied
    void at(int line, char const* field)
    {
        line_  = line;
        field_ = field;
    }

    // add - tell of a finding
    //
    // sentence  what is wrong and what to do; a "%" in it becomes quoted
    // quoted    from anywhere: it is shortened, and what cannot be shown becomes "?"
    //
    // What proc throws ends here.
    void add(eml_severity severity, char const* sentence, char const* quoted = "");

    // add - the same, where the "%" becomes a number
    void add(eml_severity severity, char const* sentence, std::size_t number);

    eml_severity worst() const { return worst_; }

private:
    finding_proc proc_;
    void*        user_;
    int          line_  = 0;
    char const*  field_ = "";
    eml_severity worst_ = eml_severity_none;
};

}  // namespace zelieml

#endif
