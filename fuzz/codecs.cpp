// codecs.cpp - Base64, hexadecimal digits, digests and stored passwords
//
// The first byte of the input says which: 'h' digits, 'p' passwords, anything else Base64.

#include <cstring>
#include <memory>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/scarce_memory.h"
#include "libbase64/libbase64.h"
#include "libcryptw/libcryptw.h"
#include "libetc/libetc.h"
#include "tests/libbase64/base64_model.h"
#include "tests/support/bytes_of.h"

using namespace zelieml;
using fuzz::require;
using test::bytes_of;

namespace
{

int length_of(std::string const& text)
{
    return static_cast<int>(text.size());
}

char const* text_at(unsigned char const* bytes)
{
    return reinterpret_cast<char const*>(bytes);
}

// A copy without a NUL after it: whoever reads past its end is caught.
std::unique_ptr<unsigned char[]> exact_copy(std::string const& text)
{
    auto copy = std::make_unique<unsigned char[]>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

void decode(std::string const& text)
{
    auto const          copy   = exact_copy(text);
    int                 length = -1;
    base64_buffer const decoded(base64_decode_ex(copy.get(), length_of(text), &length));
    auto const          bytes = test::model_decode(text);
    require((decoded != nullptr) == bytes.has_value(),
            "text is decoded or refused as the rules say");
    if (!bytes) {
        require(length == -1, "a refused text leaves the length alone");
        return;
    }
    require(length == length_of(*bytes) &&
                std::memcmp(decoded.get(), bytes->data(), bytes->size()) == 0 &&
                decoded.get()[length] == '\0',
            "text is decoded as the rules say");
}

void encode(std::string const& bytes, bool line_breaks)
{
    auto const          copy = exact_copy(bytes);
    base64_buffer const encoded(base64_encode(copy.get(), length_of(bytes), line_breaks));
    require(encoded != nullptr, "any bytes can be encoded");
    std::string const text = text_at(encoded.get());
    require(text == test::model_encode(bytes, line_breaks), "bytes are encoded as the rules say");

    int                 length = -1;
    base64_buffer const decoded(base64_decode_ex(encoded.get(), length_of(text), &length));
    require(decoded != nullptr && length == length_of(bytes) &&
                std::memcmp(decoded.get(), bytes.data(), bytes.size()) == 0,
            "what was encoded is decoded again");
}

std::string upper_case(std::string digits)
{
    for (char& digit : digits) {
        if (digit >= 'a' && digit <= 'f') {
            digit = static_cast<char>(digit - 'a' + 'A');
        } else if (std::strchr("0123456789ABCDEF", digit) == nullptr) {
            digit = '0';
        }
    }
    return digits;
}

void digits(std::string const& bytes)
{
    auto const          copy = exact_copy(bytes);
    binhex_buffer const hex(etc_bin2hexstr(copy.get(), length_of(bytes)));
    require((hex == nullptr) == bytes.empty(), "all bytes but none have digits");
    if (hex != nullptr) {
        int                 length = -1;
        binhex_buffer const back(etc_hexstr2bin(hex.get(), &length));
        require(back != nullptr && length == length_of(bytes) &&
                    std::memcmp(back.get(), bytes.data(), bytes.size()) == 0,
                "bytes come back from their digits");
    }

    std::string const   text   = bytes.c_str();
    int                 length = -1;
    binhex_buffer const read(etc_hexstr2bin(bytes_of(text), &length));
    require((read == nullptr) == (text.size() % 2 != 0), "an odd number of digits is refused");
    if (read != nullptr && length > 0) {
        binhex_buffer const again(etc_bin2hexstr(read.get(), length));
        require(again != nullptr && upper_case(text) == text_at(again.get()),
                "digits come back in upper case, and 0 for all else");
    }
}

void passwords(std::string const& bytes)
{
    icryptw           crypt;
    std::string const password = bytes.c_str();

    unsigned char* const stored = crypt.encrypt_passwd(bytes_of(password));
    require((stored == nullptr) == password.empty(), "all passwords but the empty one are stored");
    if (stored != nullptr) {
        require(std::strlen(text_at(stored)) == 2 * password.size(), "a byte is two digits");
        unsigned char* const clear = crypt.decrypt_passwd(stored);
        require(clear != nullptr && password == text_at(clear), "a stored password comes back");
        crypt.decrypt_free_passwd(clear);
    }
    crypt.encrypt_free_passwd(stored);

    unsigned char* const clear = crypt.decrypt_passwd(bytes_of(password));
    require((clear == nullptr) == (password.size() % 2 != 0), "an odd number is refused");
    crypt.decrypt_free_passwd(clear);

    unsigned char* const digest =
        crypt.hmac_md5(bytes_of(password), password.size(), bytes_of(bytes), bytes.size());
    require(digest != nullptr, "any text has a digest");
    crypt.free(digest);
}

// What there is no memory for is null.
void with_little_memory(fuzz::memory_choice choice, std::string const& bytes)
{
    using fuzz::memory_result;
    base64_buffer text;
    memory_result memory = fuzz::with_memory(
        choice, [&] { text.reset(base64_encode(bytes_of(bytes), length_of(bytes), true)); });
    require(text != nullptr ? text_at(text.get()) == test::model_encode(bytes, true)
                            : memory != memory_result::sufficed,
            "bytes are encoded as the rules say, or not at all");

    std::string const password = bytes.c_str();
    unsigned char*    stored   = nullptr;
    memory =
        fuzz::with_memory(choice, [&] { stored = icryptw().encrypt_passwd(bytes_of(password)); });
    require(stored != nullptr ? std::strlen(text_at(stored)) == 2 * password.size()
                              : password.empty() || memory != memory_result::sufficed,
            "a password is stored as a whole, or not at all");
    icryptw().encrypt_free_passwd(stored);
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    fuzz::no_descriptor_left const guard;
    fuzz::input                    input(data, size);
    switch (input.byte()) {
    case 'h':
        digits(input.rest());
        break;
    case 'p':
        passwords(input.rest());
        with_little_memory(input.memory(), input.rest());
        break;
    default:
        encode(input.rest(), false);
        encode(input.rest(), true);
        decode(input.rest());
        break;
    }
    return 0;
}
