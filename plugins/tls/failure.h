// failure.h - why there is no TLS

#ifndef ZELIEML_PLUGINS_TLS_FAILURE_H
#define ZELIEML_PLUGINS_TLS_FAILURE_H

#include <string>

#include "zelieml_ext.h"

namespace zelieml::tls
{

// Thrown; docs/REASONS.md lists the sentences.
struct failure {
    eml_cause   cause;
    std::string why;
};

}  // namespace zelieml::tls

#endif
