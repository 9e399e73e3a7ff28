#include "fuzz/support/mail_text.h"

namespace zelieml::fuzz
{

bool ends_only_at_its_end(std::string const& text)
{
    return (text + end_of_mail).find(end_of_mail) == text.size();
}

}  // namespace zelieml::fuzz
