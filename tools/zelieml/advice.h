// advice.h - a failure in plain words, and what to do about it, as a help desk would say it
//
// docs/WHY.md and docs/REASONS.md say the same to those who write programs.

#ifndef ZELIEML_TOOLS_ZELIEML_ADVICE_H
#define ZELIEML_TOOLS_ZELIEML_ADVICE_H

#include <string>

#include "zelieml_ext.h"

namespace zelieml::program
{

// in_words - a cause as half a sentence: "refused for good"
char const* in_words(eml_cause cause);

// advice - what to do about a cause at a step of eml_cb_get_step, or at "settings file": one that is
// there and cannot be read; sentences without a last full stop, never empty
char const* advice(eml_cause cause, std::string const& step);

}  // namespace zelieml::program

#endif
