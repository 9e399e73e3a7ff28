// units_bench.cpp - codecs, digests, message files, composition, settings
//
// OpenSSL's Base64 encoder runs beside ours, for a yardstick of the same run.

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <openssl/evp.h>
#include <string>
#include <vector>

#include "bench/work_dir.h"
#include "libbase64/libbase64.h"
#include "libconfw/libconfw.h"
#include "libcryptw/libcryptw.h"
#include "libetc/libetc.h"
#include "libmsg/libmsg.h"
#include "libqueue/libqueue.h"
#include "libsendw/smtpmsg.h"

namespace
{

using namespace zelieml;

std::string const& dir()
{
    static work_dir const own;
    return own.path();
}

std::string text_of(std::int64_t size)
{
    std::string text;
    while (text.size() < static_cast<std::size_t>(size)) {
        text += "The quick brown fox jumps over the lazy dog; tray 2 is empty.\r\n";
    }
    text.resize(static_cast<std::size_t>(size));
    return text;
}

unsigned char* bytes(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

void count_bytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void base64_encode_lines(benchmark::State& state)
{
    std::string text = text_of(state.range(0));
    for (auto _ : state) {
        unsigned char* const encoded =
            base64_encode(bytes(text), static_cast<int>(text.size()), true);
        benchmark::DoNotOptimize(encoded);
        base64_free(encoded);
    }
    count_bytes(state);
}

void base64_encode_lines_openssl(benchmark::State& state)
{
    std::string           text    = text_of(state.range(0));
    EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
    for (auto _ : state) {
        auto* const encoded = static_cast<unsigned char*>(std::malloc(text.size() / 48 * 65 + 130));
        int         size    = 0;
        int         rest    = 0;
        EVP_EncodeInit(context);
        EVP_EncodeUpdate(context, encoded, &size, bytes(text), static_cast<int>(text.size()));
        EVP_EncodeFinal(context, encoded + size, &rest);
        benchmark::DoNotOptimize(encoded);
        std::free(encoded);
    }
    EVP_ENCODE_CTX_free(context);
    count_bytes(state);
}

void base64_decode_lines(benchmark::State& state)
{
    std::string          text    = text_of(state.range(0));
    unsigned char* const encoded = base64_encode(bytes(text), static_cast<int>(text.size()), true);
    int const            length =
        static_cast<int>(std::char_traits<char>::length(reinterpret_cast<char*>(encoded)));
    for (auto _ : state) {
        unsigned char* const decoded = base64_decode(encoded, length);
        benchmark::DoNotOptimize(decoded);
        base64_free(decoded);
    }
    base64_free(encoded);
    count_bytes(state);
}

void hex_encode(benchmark::State& state)
{
    std::string text = text_of(state.range(0));
    for (auto _ : state) {
        unsigned char* const hex = etc_bin2hexstr(bytes(text), static_cast<int>(text.size()));
        benchmark::DoNotOptimize(hex);
        etc_binhex_free(hex);
    }
    count_bytes(state);
}

void hex_decode(benchmark::State& state)
{
    std::string hex = std::string(static_cast<std::size_t>(state.range(0)) * 2, 'A');
    for (auto _ : state) {
        int                  size   = 0;
        unsigned char* const binary = etc_hexstr2bin(bytes(hex), &size);
        benchmark::DoNotOptimize(binary);
        etc_binhex_free(binary);
    }
    count_bytes(state);
}

void digest_md5(benchmark::State& state)
{
    std::string text = text_of(state.range(0));
    icryptw     crypt;
    for (auto _ : state) {
        unsigned char* const digest = crypt.md5(bytes(text), text.size());
        benchmark::DoNotOptimize(digest);
        crypt.free(digest);
    }
    count_bytes(state);
}

void digest_hmac_md5(benchmark::State& state)
{
    std::string key  = "a password of a user";
    std::string text = text_of(state.range(0));
    icryptw     crypt;
    for (auto _ : state) {
        unsigned char* const digest =
            crypt.hmac_md5(bytes(key), key.size(), bytes(text), text.size());
        benchmark::DoNotOptimize(digest);
        crypt.free(digest);
    }
    count_bytes(state);
}

void password_decrypt(benchmark::State& state)
{
    std::string          password = "a password of a user";
    icryptw              crypt;
    unsigned char* const stored = crypt.encrypt_passwd(bytes(password));
    for (auto _ : state) {
        unsigned char* const clear = crypt.decrypt_passwd(stored);
        benchmark::DoNotOptimize(clear);
        crypt.decrypt_free_passwd(clear);
    }
    crypt.encrypt_free_passwd(stored);
}

void* message(std::int64_t body_size, eml_encoding encoding)
{
    void* msg = nullptr;
    msg_create(&msg);
    msg_set_from(msg, "printer@office.test");
    msg_set_to(msg, "anna@office.test, ben@office.test");
    msg_set_replyto(msg, "helpdesk@office.test");
    msg_set_subject(msg, "Printer 7: tray 2 is empty");
    msg_set_body(msg, text_of(body_size).c_str());
    msg_set_encoding(msg, encoding);
    return msg;
}

void message_set_body(benchmark::State& state)
{
    std::string const text = text_of(state.range(0));
    void* const       msg  = message(0, eml_encoding_utf8);
    for (auto _ : state) {
        msg_set_body(msg, text.c_str());
    }
    msg_destroy(msg);
    count_bytes(state);
}

void message_save(benchmark::State& state)
{
    std::string const path = dir() + "/save.sme";
    void* const       msg  = message(state.range(0), eml_encoding_utf8);
    for (auto _ : state) {
        if (msg_save(msg, path.c_str()) != 0) {
            state.SkipWithError("not saved");
        }
    }
    msg_destroy(msg);
    count_bytes(state);
}

void message_load(benchmark::State& state)
{
    std::string const path  = dir() + "/load.sme";
    void* const       saved = message(state.range(0), eml_encoding_utf8);
    msg_save(saved, path.c_str());
    msg_destroy(saved);
    for (auto _ : state) {
        void* msg = nullptr;
        if (msg_load(&msg, path.c_str()) != 0) {
            state.SkipWithError("not loaded");
        }
        msg_destroy(msg);
    }
    count_bytes(state);
}

std::string const& settings()
{
    static std::string const path = [] {
        std::string   file = dir() + "/zelismes.cf";
        std::ofstream out(file, std::ios::binary);
        out << "smtp_server = 127.0.0.1\r\nsmtp_port = 25\r\nsmtp_auth = no\r\n"
               "pop_before_smtp = no\r\npasswd_raw = no\r\nsubject_use_encoding = yes\r\n";
        return file;
    }();
    return path;
}

void compose(benchmark::State& state, eml_encoding encoding)
{
    void* const msg = message(state.range(0), encoding);
    for (auto _ : state) {
        std::vector<std::string> lines;
        smtpmsg_create_multiline(msg, lines, settings().c_str());
        benchmark::DoNotOptimize(lines.data());
    }
    msg_destroy(msg);
    count_bytes(state);
}

void settings_read(benchmark::State& state)
{
    for (auto _ : state) {
        char         value[1024];
        unsigned int length = sizeof value;
        confw_get_string("subject_use_encoding", value, &length, settings().c_str());
        benchmark::DoNotOptimize(value);
    }
}

void settings_write(benchmark::State& state)
{
    std::string const path = dir() + "/written.cf";
    for (auto _ : state) {
        confw_set_string("smtp_port", "25", path.c_str());
    }
}

// A queue that is full but for one place.
void queue_add_get_erase(benchmark::State& state)
{
    iqmgr* queue = nullptr;
    iqmgr_create(&queue);
    std::vector<std::string> files;
    for (std::size_t i = 1; i < max_queue; ++i) {
        files.push_back(dir() + "/20261121101530-00012345-1234" + std::to_string(i) + ".sme");
    }
    queue->add(files);
    files.clear();
    queue->get(files, 0, 0);

    std::vector<std::string> const one = {dir() + "/20261121101530-00012345-9999.sme"};
    for (auto _ : state) {
        queue->add(one);
        std::vector<std::string> due;
        queue->get(due, 0, 0);
        queue->erase(due);  // the file does not exist
    }
    iqmgr_destroy(queue);
}

// A pass that finds nothing due, as an engine makes every second.
void queue_get_nothing(benchmark::State& state)
{
    iqmgr* queue = nullptr;
    iqmgr_create(&queue);
    std::vector<std::string> files;
    for (std::size_t i = 0; i < max_queue; ++i) {
        files.push_back(dir() + "/20261121101530-00012345-1234" + std::to_string(i) + ".sme");
    }
    queue->add(files);
    files.clear();
    queue->get(files, 0, 0);
    for (auto _ : state) {
        std::vector<std::string> due;
        queue->get(due, 0, 0);
        benchmark::DoNotOptimize(due.data());
    }
    iqmgr_destroy(queue);
}

constexpr std::int64_t small  = 100;
constexpr std::int64_t medium = 10 * 1000;
constexpr std::int64_t large  = 10 * 1000 * 1000;

BENCHMARK(base64_encode_lines)->Arg(small)->Arg(medium)->Arg(large);
BENCHMARK(base64_encode_lines_openssl)->Arg(small)->Arg(medium)->Arg(large);
BENCHMARK(base64_decode_lines)->Arg(small)->Arg(medium)->Arg(large);
BENCHMARK(hex_encode)->Arg(16)->Arg(medium);
BENCHMARK(hex_decode)->Arg(16)->Arg(medium);
BENCHMARK(digest_md5)->Arg(small)->Arg(medium);
BENCHMARK(digest_hmac_md5)->Arg(small)->Arg(medium);
BENCHMARK(password_decrypt);
BENCHMARK(message_set_body)->Arg(small)->Arg(medium)->Arg(large);
BENCHMARK(message_save)->Arg(small)->Arg(medium)->Arg(large);
BENCHMARK(message_load)->Arg(small)->Arg(medium)->Arg(large);
BENCHMARK_CAPTURE(compose, utf8, eml_encoding_utf8)->RangeMultiplier(10)->Range(small, large);
BENCHMARK_CAPTURE(compose, jis, eml_encoding_iso2022jp)->RangeMultiplier(10)->Range(small, large);
BENCHMARK(settings_read);
BENCHMARK(settings_write);
BENCHMARK(queue_add_get_erase);
BENCHMARK(queue_get_nothing);

}  // namespace
