// fuzz.h - what all targets share
//
// A target takes the bytes of a fuzzer as the input of one unit, and ends the program when a rule
// of the unit does not hold. An input of several fields has ASCII separators between them, which
// have no meaning to the library.

#ifndef ZELIEML_FUZZ_SUPPORT_FUZZ_H
#define ZELIEML_FUZZ_SUPPORT_FUZZ_H

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>

// LLVMFuzzerTestOneInput - run one input; defined by each target, called by libFuzzer or by
// replay.cpp. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace zelieml::fuzz
{

constexpr char field_separator = '\x1c';

// require - end the program when a rule does not hold
//
// rule  what should be so; printed
void require(bool holds, char const* rule);

// begins_with - whether a string begins with another
bool begins_with(std::string const& text, char const* start);

// What memory there is for a run.
struct memory_choice {
    enum kind {
        enough,
        one_object_less,  // one request of operator new fails
        no_objects,       // all fail
        no_buffers        // all requests for the library's buffers fail (support/heap.h)
    };
    kind what = enough;
    int  good = 0;  // requests before, which succeed
};

// The input of one run, from its beginning to its end.
//
// An input that ends in a separator, 'm' and two bytes makes memory run out: the lowest two bits of
// the first byte are the kind of memory_choice, and its other bits and the second byte are good.
// These four bytes are no part of the fields.
class input
{
public:
    input(std::uint8_t const* data, std::size_t size);

    memory_choice memory() const { return memory_; }

    bool at_end() const { return rest_.empty(); }

    // The next byte; 0 at the end.
    unsigned char byte();

    // What comes before the next separator, which is dropped; everything when there is none.
    std::string field(char separator = field_separator);

    // The same, up to its first NUL.
    std::string c_string(char separator = field_separator);

    std::string const& rest() const { return rest_; }

private:
    std::string   rest_;
    memory_choice memory_;
};

// Which descriptors are open, by their numbers: a new one gets the lowest that is free.
using descriptors = std::bitset<256>;

// The program has the same descriptors at the end of the scope as at its beginning.
class no_descriptor_left
{
public:
    no_descriptor_left();
    ~no_descriptor_left();
    no_descriptor_left(no_descriptor_left const&)            = delete;
    no_descriptor_left& operator=(no_descriptor_left const&) = delete;

private:
    descriptors before_;
};

}  // namespace zelieml::fuzz

#endif
