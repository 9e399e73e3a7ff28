// neighbour_attacks.h - what neighbours do to an engine: the rows of the table
//
// To add an attack, write a function in neighbour_attacks.cpp and add a row to attacks() there.

#ifndef ZELIEML_TESTS_ENGINE_NEIGHBOUR_ATTACKS_H
#define ZELIEML_TESTS_ENGINE_NEIGHBOUR_ATTACKS_H

#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/support/case_name.h"

namespace zelieml::test
{

constexpr uid_t root_id = 0;

// What private files say.
constexpr char private_text[]  = "subject: private\nto: thief@a.test\nreplyto: r\nA secret.\n";
constexpr char settings_name[] = "zelismes.cf";

constexpr int seconds_taken = 100;  // by names like those of posts

struct scene {
    uid_t  attacker;
    uid_t  victim;  // whose engine it is
    mode_t mode;    // of the work directory
    bool   shared;  // there is a place for all users
};

// What an attacker knows of the scene.
struct target {
    scene       where;
    std::string work;
    std::string shared;     // the place for all users, also where there is none
    std::string tmp;        // holds the users' own places
    std::string own;        // the victim's own place
    std::string his;        // the attacker's own
    std::string secret;     // the victim's private file
    std::string roots;      // root's private file
    std::string open;       // a file of the victim's that everybody may write
    std::string folder;     // the victim's, with a message file kept.sme
    std::string elsewhere;  // a name that nothing has

    std::string file(std::string const& name) const { return work + "/" + name; }
};

// Something that an attacker does. Returns false if it could not be done.
using deed = bool (*)(target const&);

// Where an attack makes no sense, and why.
struct need {
    bool (*holds)(scene const& where);
    char const* reason;
};

// What a row may get. All else it may not.
enum gain : unsigned {
    nothing        = 0,
    mails_of_his   = 1U << 0U,  // by files of his own: whoever can write there can send
    deaf_engine    = 1U << 1U,  // announcements may wait for the look
    late_look      = 1U << 2U,  // locked files wait for an hour
    crowded_look   = 1U << 3U,  // what was not announced may wait for longer
    no_settings    = 1U << 4U,  // until somebody restores them
    no_new_setting = 1U << 5U,
    no_start       = 1U << 6U,  // until somebody frees the place
    large_memory   = 1U << 7U,  // for a while
    failing_posts  = 1U << 8U   // while their names are taken
};

struct attack : named_case {
    using named_case::named_case;

    // Done before the engine starts, and again while it runs; the planted names are announced.
    attack& plants(deed what)
    {
        before = during = what;
        return *this;
    }
    // Done before the engine starts only.
    attack& prepares(deed what)
    {
        before = what;
        return *this;
    }
    // Done while it runs.
    attack& does(deed what)
    {
        during = what;
        return *this;
    }
    // Done again and again, from before the start to after the look.
    attack& repeats(deed what)
    {
        repeated = what;
        return *this;
    }
    // Done by root beforehand: what he was given.
    //
    // reason  why a system may be unable to, and the test is skipped; null if it must not
    attack& given(deed what, char const* reason = nullptr)
    {
        gift      = what;
        not_given = reason;
        return *this;
    }
    attack& gets(unsigned what)
    {
        gains |= what;
        return *this;
    }
    attack& only_with(need const& what)
    {
        needs.push_back(what);
        return *this;
    }
    // Makes very many names.
    attack& makes_many();
    // Skipped where the system lacks something.
    attack& if_possible(bool (*is_so)(), char const* reason)
    {
        possible     = is_so;
        not_possible = reason;
        return *this;
    }
    attack& on_linux();
    bool    may(gain what) const { return (gains & what) != 0; }

    deed              before   = nullptr;
    deed              during   = nullptr;
    deed              repeated = nullptr;
    deed              gift     = nullptr;
    unsigned          gains    = nothing;
    std::vector<need> needs;
    char const*       not_given = nullptr;
    bool (*possible)()          = nullptr;
    char const* not_possible    = nullptr;
    bool        crowds          = false;
};

std::vector<attack> attacks();

// Announces what a row may have planted.
bool announce_planted(target const& t);

}  // namespace zelieml::test

#endif
