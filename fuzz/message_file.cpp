// message_file.cpp - message files against the rules of docs/FORMATS.md
//
// The input is a message file, or, after the byte 's', the fields for the setters.

#include "fuzz/support/fuzz.h"
#include "fuzz/support/scarce_memory.h"
#include "fuzz/support/scratch.h"
#include "libmsg/libmsg.h"
#include "tests/libmsg/message_model.h"

using namespace zelieml;
using fuzz::require;

namespace
{

message_holder loaded_from(fuzz::scratch_file const& file)
{
    void*          msg    = nullptr;
    int const      result = msg_load(&msg, file.path());
    message_holder held(msg);
    require(result == 0, "a message file can be loaded");
    return held;
}

void save_and_load(void* msg, fuzz::scratch_file const& file)
{
    require(msg_save(msg, file.path()) == 0, "a message can be saved");
    std::string const bytes = file.read();
    require(bytes == test::file_of(test::get_all(msg)), "a message is saved as the model says");
    message_holder const again = loaded_from(file);
    require(test::get_all(again.get()) == test::message_of(bytes),
            "what was saved is loaded as the model says");
}

message_holder set_up(fuzz::input& input)
{
    using setter           = int (*)(void*, char const*);
    setter const setters[] = {msg_set_from,    msg_set_to,        msg_set_cc, msg_set_subject,
                              msg_set_replyto, msg_set_messageid, nullptr};

    void* msg = nullptr;
    require(msg_create(&msg) == 0, "a message can be made");
    message_holder held(msg);

    test::message model;
    bool const    jis = input.byte() % 2 == 1;
    msg_set_encoding(msg, jis ? eml_encoding_iso2022jp : eml_encoding_utf8);
    model.header[0] = jis ? "ISO-2022-JP" : "UTF-8";
    for (int i = 0; setters[i] != nullptr; ++i) {
        model.header[i + 1] = input.c_string();
        require(setters[i](msg, model.header[i + 1].c_str()) == 0, "a field can be set");
    }
    std::string const body = input.c_string();
    model.body             = test::stored_body(body);
    require(msg_set_body(msg, body.c_str()) == 0, "a body can be set");
    require(test::get_all(msg) == model, "a message holds what was set");
    return held;
}

// A buffer with room for the body and its NUL, and one that is a byte too short.
void read_body(void* msg)
{
    std::string const body = msg_get_body(msg).c_str();
    int const         size = static_cast<int>(body.size()) + 1;
    std::string       buffer(body.size() + 1, '#');
    require(msg_get_body(msg, &buffer[0], size) == 0 && body == buffer.c_str(),
            "a body fits a buffer of its size");
    buffer.assign(body.size() + 1, '#');
    require(msg_get_body(msg, &buffer[0], size - 1) == -1 &&
                buffer == std::string(body.size() + 1, '#'),
            "a buffer that is too short is left alone");
}

// A message is loaded and saved as a whole, or the caller is told; only lines that there is no
// memory for may be missing in the file.
void load_and_save_with(fuzz::memory_choice choice, fuzz::scratch_file const& file)
{
    test::message const model  = test::message_of(file.read());
    void*               loaded = nullptr;
    int                 load   = -1;
    fuzz::memory_result memory =
        fuzz::with_memory(choice, [&] { load = msg_load(&loaded, file.path()); });
    message_holder const msg(loaded);
    bool const           threw = memory == fuzz::memory_result::threw;
    require(load == 0 || memory != fuzz::memory_result::sufficed, "a message file can be loaded");
    require(threw || load != 0 || test::get_all(msg.get()) == model,
            "a message is loaded as the model says, or not at all");

    if (load == 0) {
        int save = -1;
        memory   = fuzz::with_memory(choice, [&] { save = msg_save(msg.get(), file.path()); });
        require(save == 0 || memory != fuzz::memory_result::sufficed, "a message can be saved");
        require(memory != fuzz::memory_result::sufficed || file.read() == test::file_of(model),
                "a message is saved as the model says");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    fuzz::scratch_file const       file("mail.sme");
    message_holder                 msg;
    if (size > 0 && *data == 's') {
        input.byte();
        file.remove();
        msg = set_up(input);
    } else {
        file.write(input.rest());
        msg = loaded_from(file);
        require(test::get_all(msg.get()) == test::message_of(input.rest()),
                "a message file is loaded as the model says");
    }
    read_body(msg.get());
    save_and_load(msg.get(), file);
    load_and_save_with(input.memory(), file);
    return 0;
}
