// posters.h - threads and processes that post to the main engine

#ifndef ZELIEML_TESTS_SOAK_POSTERS_H
#define ZELIEML_TESTS_SOAK_POSTERS_H

#include "tests/soak/books.h"
#include "tests/soak/site.h"

namespace zelieml::test
{

// A message record for a mail that was entered.
class message
{
public:
    explicit message(unsigned number);
    ~message();
    message(message const&)            = delete;
    message& operator=(message const&) = delete;

    void* get() const { return record_; }

private:
    void* record_ = nullptr;
};

// Enters a mail and posts it to an engine; its number.
unsigned post_to(place const& engine, way sender, fate end = fate::taken);
unsigned post_to(void* eml, way sender, fate end = fate::taken);

// Posts to an engine of this process until the load is over.
void post_in_host(actor self, void* eml, place const& engine);

// Posts some hundred mails, in all the ways there are.
void post_some(actor self, site const& where);

}  // namespace zelieml::test

#endif
