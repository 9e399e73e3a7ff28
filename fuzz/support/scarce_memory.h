// scarce_memory.h - calls of the library for which memory runs out
//
// Which request fails is up to the input, see input::memory. The targets link the fakes of operator
// new and of the library's heap.

#ifndef ZELIEML_FUZZ_SUPPORT_SCARCE_MEMORY_H
#define ZELIEML_FUZZ_SUPPORT_SCARCE_MEMORY_H

#include <memory>
#include <new>

#include "fuzz/support/fuzz.h"
#include "tests/support/failing_new.h"

namespace zelieml::fuzz
{

// Memory fails as was chosen while the object lives. One at a time.
class scarce_memory
{
public:
    explicit scarce_memory(memory_choice choice);
    ~scarce_memory();
    scarce_memory(scarce_memory const&)            = delete;
    scarce_memory& operator=(scarce_memory const&) = delete;

    // Whether a request has failed.
    bool failed() const;

private:
    std::unique_ptr<test::failing_new> new_;
};

// What came of a call.
enum class memory_result {
    sufficed,
    ran_out,  // and the call returned
    threw,    // std::bad_alloc, because memory ran out
};

// with_memory - call a function with the memory that was chosen
template <class Call>
memory_result with_memory(memory_choice choice, Call&& call)
{
    scarce_memory const memory(choice);
    try {
        call();
    } catch (std::bad_alloc const&) {
        require(memory.failed(), "nothing throws while there is memory");
        return memory_result::threw;
    }
    return memory.failed() ? memory_result::ran_out : memory_result::sufficed;
}

}  // namespace zelieml::fuzz

#endif
