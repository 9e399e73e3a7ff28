// tls_bench.cpp - what TLS adds to a mail: eml_post_sync without it, from the first byte, by
// STARTTLS
//
//     tls_bench FOLDER ROUNDS BYTES        by turns, and how they compare
//     tls_bench FOLDER ROUNDS BYTES WAY    in one way only, for counting
//
// FOLDER  that of a tls_sink
// BYTES   of the body; 0: the usual mail
// WAY     no, tls or starttls
//
// The processor time is that of this process: the session's thread and the plug-in's.

#include <fstream>
#include <stdexcept>
#include <sys/resource.h>

#include "bench/mail.h"
#include "bench/work_dir.h"

namespace
{

double processor_microseconds()
{
    rusage used = {};
    ::getrusage(RUSAGE_SELF, &used);
    auto const of = [](timeval const& t) {
        return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
    };
    return of(used.ru_utime) + of(used.ru_stime);
}

// One way to the server, with settings of its own.
class way
{
public:
    way(std::string const& mode, std::string const& port, std::string const& ca_file) : mode_(mode)
    {
        std::string const conf = dir_.path() + "/zelismes.cf";
        write_settings(dir_.path(), port);
        eml_cf_set_string("smtp_tls", mode.c_str(), conf.c_str());
        eml_cf_set_string("tls_ca_file", ca_file.c_str(), conf.c_str());
    }

    char const* mode() const { return mode_.c_str(); }

    void send(std::string const& body)
    {
        double const before = processor_microseconds();
        times_.push_back(microseconds([&] {
            if (send_mail(dir_.path(), body) != 0) {
                throw std::runtime_error("eml_post_sync failed");
            }
        }));
        used_ += processor_microseconds() - before;
    }

    void forget()
    {
        times_.clear();
        used_ = 0;
    }

    double median() const { return summarise(times_).median; }
    double processor() const { return used_ / static_cast<double>(times_.size()); }

    void print(way const& plain) const
    {
        std::printf("%-10s median %8.0f us (%5.2f times), processor %8.0f us (%5.2f times)\n",
                    mode(), median(), median() / plain.median(), processor(),
                    processor() / plain.processor());
    }

private:
    std::string const   mode_;
    work_dir const      dir_;
    std::vector<double> times_;
    double              used_ = 0;
};

}  // namespace

int main(int argc, char** argv)
try {
    if (argc < 4) {
        std::fprintf(stderr, "use: tls_bench FOLDER ROUNDS BYTES [no|tls|starttls]\n");
        return 2;
    }
    std::string const folder = argv[1];
    std::string const ca     = folder + "/ca.pem";
    std::string const body   = text_of(static_cast<std::size_t>(std::atol(argv[3])));
    int const         rounds = std::max(1, std::atoi(argv[2]));
    std::string       ports[3];
    std::ifstream     ready(folder + "/ready");
    ready >> ports[0] >> ports[1] >> ports[2];

    way ways[] = {{"no", ports[0], ca}, {"tls", ports[1], ca}, {"starttls", ports[2], ca}};
    if (argc > 4) {
        for (way& one : ways) {
            for (int i = 0; i < rounds && std::string(one.mode()) == argv[4]; ++i) {
                one.send(body);
            }
        }
        return 0;
    }
    for (int i = 0; i <= rounds; ++i) {
        for (way& one : ways) {
            one.send(body);
            if (i == 0) {
                one.forget();  // the plug-in and the authorities are loaded with the first mail
            }
        }
    }
    for (way const& one : ways) {
        one.print(ways[0]);
    }
    return 0;
} catch (std::exception const& error) {
    std::fprintf(stderr, "tls_bench: %s\n", error.what());
    return 1;
}
