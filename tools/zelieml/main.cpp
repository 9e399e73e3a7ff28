// main.cpp - zelieml, the program: sends status mails and keeps the service that sends them
//
// Everything that the program does with mails it does through the library's two headers, as any
// user of the library would.

#include "tools/zelieml/command.h"
#include "tools/zelieml/locale_text.h"

int main(int argc, char** argv)
{
    zelieml::program::use_locale();
    zelieml::program::command_line line;
    zelieml::program::add_send(line);
    zelieml::program::add_post(line);
    zelieml::program::add_engine(line);
    zelieml::program::add_queue(line);
    zelieml::program::add_settings(line);
    zelieml::program::add_check(line);
    zelieml::program::add_receive(line);
    zelieml::program::add_password(line);
    zelieml::program::add_completion(line);
    return line.run(argc, argv);
}
