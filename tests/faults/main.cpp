// main.cpp - zelieml-faults faults|kill [SCENARIO [WHAT]]

#include <cstdio>
#include <exception>
#include <string>

#include "tests/faults/faults.h"

int main(int count, char** arguments)
{
    std::string const job  = count > 1 ? arguments[1] : "";
    std::string const name = count > 2 ? arguments[2] : "";
    std::string const what = count > 3 ? arguments[3] : "";
    try {
        if (job == "faults") {
            return zelieml::test::run_faults(name, what);
        }
        if (job == "kill") {
            return zelieml::test::run_kills(name, what);
        }
        std::fprintf(stderr, "use: zelieml-faults faults|kill [SCENARIO [WHAT]]\n");
    } catch (std::exception const& error) {
        std::fprintf(stderr, "zelieml-faults: %s\n", error.what());
    }
    return 2;
}
