// other_width_test.cpp - programs of 32 and of 64 bits share settings, messages, notifications
//
// Those of this build, and those of a build for the other width.

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <sys/stat.h>

#include "tests/examples/example_programs.h"
#include "tests/support/workplace.h"

namespace zelieml::test
{

namespace
{

notification_root const root;

struct build {
    char const* name;
    std::string configure;
    std::string engine;
    std::string post;
};

build const this_build  = {"this_build", CONFIGURE_EXAMPLE, ENGINE_EXAMPLE, POST_EXAMPLE};
build const other_build = {"other_build", OTHER_EXAMPLES "/configure", OTHER_EXAMPLES "/engine",
                           OTHER_EXAMPLES "/post"};

// How an ELF program says that it is one of 32 or of 64 bits.
int width_class(std::string const& program)
{
    constexpr std::size_t class_index = 4;
    std::string const     text        = read_file(program);
    return text.size() > class_index ? text[class_index] : 0;
}

struct pairing {
    build const& poster;
    build const& engine;
};

void PrintTo(pairing const& p, std::ostream* out)
{
    *out << p.poster.name << " posts, " << p.engine.name << " sends";
}

std::string name_of(::testing::TestParamInfo<pairing> const& info)
{
    return std::string(info.param.poster.name) + "_posts";
}

class OtherWidth : public ::testing::TestWithParam<pairing>
{
protected:
    OtherWidth() { ::mkdir(work_.c_str(), 0777); }

    // One build's engine; the mails come from the other's.
    std::unique_ptr<program> start_engine() const
    {
        auto engine = std::make_unique<program>(strings{GetParam().engine.engine, work_, "symbol"});
        engine->wait_for("ready\n");
        wait_for_registration();
        return engine;
    }

    void post(std::string const& body) const
    {
        expect(run(GetParam().poster.post, with_mail({work_, "symbol"}), body), 0, "");
    }

    temp_dir          dir_;
    std::string const work_     = dir_.file("work");
    std::string const settings_ = work_ + "/zelismes.cf";
};

INSTANTIATE_TEST_SUITE_P(Both, OtherWidth,
                         ::testing::Values(pairing{this_build, other_build},
                                           pairing{other_build, this_build}),
                         name_of);

}  // namespace

TEST(OtherWidthPrograms, AreOfAnotherWidthThanThese)
{
    for (auto const program : {&build::configure, &build::engine, &build::post}) {
        int const ours   = width_class(this_build.*program);
        int const theirs = width_class(other_build.*program);
        EXPECT_EQ(ours + theirs, 1 + 2) << this_build.*program << ", " << other_build.*program;
    }
}

TEST(OtherWidthPrograms, WriteTheSameSettings)
{
    temp_dir const dir;
    strings        written;
    for (build const* const b : {&this_build, &other_build}) {
        std::string const path = dir.file(b->name);
        expect(run(b->configure, {path, "smtp_server=mail.test", "smtp_port=25",
                                  "smtp_passwd=secret \xC3\xA4", "pop_passwd=x"}),
               0, "");
        written.push_back(read_file(path));
    }
    EXPECT_EQ(written[0], written[1]);
}

TEST(OtherWidthPrograms, WriteTheSameMessageFiles)
{
    temp_dir const dir;
    std::string    body;
    for (int line = 0; line < 2000; ++line) {
        body += "line " + std::to_string(line) + " of a long body\n";
    }
    strings written;
    for (build const* const b : {&this_build, &other_build}) {
        std::string const work = dir.file(b->name);
        ::mkdir(work.c_str(), 0777);
        expect(run(b->post,
                   with_mail({work, "nobody", "cc=ben@b.test", "messageid=<1@a.test>",
                              "encoding=iso-2022-jp"}),
                   body),
               0, "");
        strings const files = list_directory(work);
        ASSERT_EQ(files.size(), 1u);
        written.push_back(read_file(work + "/" + files[0]));
    }
    EXPECT_EQ(written[0], written[1]);
}

TEST_P(OtherWidth, EngineSendsWhatIsPostedWithThePasswordThatWasStored)
{
    loopback const server({"--user", "tim", "--password", "secret", "--require-auth"});
    expect(
        run(GetParam().poster.configure,
            {settings_, "smtp_server=127.0.0.1", "smtp_port=" + server.smtp_port(),
             "subject_use_encoding=no", "smtp_auth=yes", "smtp_account=tim", "smtp_passwd=secret"}),
        0, "");
    auto const engine = start_engine();

    constexpr int mails = 20;
    for (int i = 0; i < mails; ++i) {
        post("The tray is empty.\n");
    }
    // In seconds, not after half an hour, when a file that was not announced would be found.
    EXPECT_TRUE(engine->wait_for("result 0 (sent): 221 2.0.0 goodbye\n", mails));
    server.wait_for("mail from:<box@a.test> to:<anna@b.test>", mails);
    server.wait_for("Subject: paper", mails);

    EXPECT_TRUE(wait_until([&] { return list_directory(work_) == strings{"zelismes.cf"}; }));
    engine->signal(SIGTERM);
    EXPECT_EQ(engine->wait(), 0);
    EXPECT_EQ(root.sockets(), strings());
}

TEST_P(OtherWidth, PostClearsAwayWhatADeadEngineLeft)
{
    auto const engine = start_engine();
    engine->signal(SIGKILL);
    EXPECT_EQ(engine->wait(), -SIGKILL);
    EXPECT_EQ(root.sockets().size(), 1u);
    post("x\n");
    EXPECT_EQ(root.sockets(), strings());
}

}  // namespace zelieml::test
