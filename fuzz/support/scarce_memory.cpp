#include "fuzz/support/scarce_memory.h"

#include "tests/support/fake_heap.h"

namespace zelieml::fuzz
{

scarce_memory::scarce_memory(memory_choice choice)
{
    test::fail_heap_after(choice.what == memory_choice::no_buffers ? choice.good : -1);
    bool const one = choice.what == memory_choice::one_object_less;
    if (one || choice.what == memory_choice::no_objects) {
        new_ = one ? std::make_unique<test::failing_new>(choice.good, 1)
                   : std::make_unique<test::failing_new>(choice.good);
    }
}

scarce_memory::~scarce_memory()
{
    test::fail_heap_after(-1);
}

bool scarce_memory::failed() const
{
    return (new_ != nullptr && test::failing_new::refused()) || test::heap_has_failed();
}

}  // namespace zelieml::fuzz
