// settings.cpp - reading and writing settings against the rules of docs/FORMATS.md
//
// The input is a settings file and then up to 20 calls: 'g', the size of the buffer and a key, or
// 's', a key and a value.

#include "fuzz/support/fuzz.h"
#include "fuzz/support/scarce_memory.h"
#include "fuzz/support/scratch.h"
#include "libconf/libconf.h"
#include "tests/libconf/settings_model.h"

using namespace zelieml;
using fuzz::require;

namespace
{

// Each call opens files, so an input with hundreds of them would be slow.
constexpr int max_calls = 20;

void get(fuzz::input& input, fuzz::scratch_file const& settings, std::string const& model)
{
    // The longest value has 1019 characters.
    std::size_t const size = input.byte() * 5U;
    std::string const key  = input.c_string();
    std::string const before(size, '#');
    std::string       buffer = before;
    auto              length = static_cast<unsigned int>(size);
    int               result = -1;
    auto const        memory = fuzz::with_memory(input.memory(), [&] {
        result = conf_get_string(key.c_str(), &buffer[0], &length, settings.path());
    });
    require(test::reading{result, length, buffer} == test::model_get(model, key, before) ||
                (memory != fuzz::memory_result::sufficed && result == -1),
            "a setting is read as the model says");

    std::string again      = before;
    length                 = static_cast<unsigned int>(size);
    int const again_result = conf_get_string(key.c_str(), &again[0], &length,
                                             conf_settings(settings.path(), {key.c_str()}));
    require(test::reading{again_result, length, again} == test::model_get(model, key, before),
            "so is it from settings that have been read");
}

void set(fuzz::input& input, fuzz::scratch_file const& settings, std::string& model)
{
    std::string const key    = input.c_string();
    std::string const value  = input.c_string();
    std::string const before = model;
    bool const        done   = test::model_set(model, key, value);
    int               result = -1;
    auto const        memory = fuzz::with_memory(input.memory(), [&] {
        result = conf_set_string(key.c_str(), value.c_str(), settings.path());
    });
    if (memory != fuzz::memory_result::sufficed && result == -1) {
        model = before;
    } else {
        require(result == (done ? 0 : -1), "a setting is written or refused as the model says");
    }
    require(settings.read() == model, "the file becomes what the model says");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    fuzz::scratch_file const       settings("zelismes.cf");
    fuzz::scratch_file const       temporary("zelismes.cf.tmp");
    std::string                    model = input.field();
    settings.write(model);
    for (int calls = 0; calls < max_calls && !input.at_end(); ++calls) {
        if (input.byte() == 's') {
            set(input, settings, model);
        } else {
            get(input, settings, model);
        }
    }
    temporary.remove();
    return 0;
}
