// post_at_once_test.cpp - many threads and processes post at the same time, by the real clock

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/support/files.h"
#include "tests/support/mail_server.h"
#include "tests/support/workplace.h"
#include "zelieml.h"

using namespace zelieml::test;

namespace
{

constexpr int thread_count     = 4;
constexpr int process_count    = 3;
constexpr int mails_of_each    = 25;
constexpr int posters          = thread_count + process_count;
constexpr int failures_at_most = 100;  // an exit status holds no more than a byte

// Posts its mails and returns how many failed.
int post_mails(std::string const& workdir, int poster)
{
    int failures = 0;
    for (int mail = 0; mail < mails_of_each; ++mail) {
        std::string const subject = std::to_string(poster) + "." + std::to_string(mail);
        void* const       msg     = new_mail(subject);
        void*             result  = nullptr;
        if (eml_post_sync(workdir.c_str(), msg, &result) != 0) {
            ++failures;
        }
        eml_cb_delete(result);
        eml_msg_destroy(msg);
    }
    return std::min(failures, failures_at_most);
}

// A process that waits until its standard start is given, then posts.
class posting_process
{
public:
    posting_process(std::string const& workdir, int poster)
    {
        if (::pipe(start_) != 0) {
            throw std::runtime_error("no pipe");
        }
        child_ = ::fork();
        if (child_ == 0) {
            ::close(start_[1]);
            char byte = 0;
            ::_exit(::read(start_[0], &byte, 1) == 1 ? post_mails(workdir, poster)
                                                     : failures_at_most);
        }
        ::close(start_[0]);
    }

    void start() { EXPECT_EQ(::write(start_[1], "s", 1), 1); }

    int failures()
    {
        ::close(start_[1]);
        int status = 0;
        EXPECT_EQ(::waitpid(child_, &status, 0), child_);
        return WIFEXITED(status) ? WEXITSTATUS(status) : failures_at_most;
    }

private:
    int     start_[2] = {-1, -1};
    ::pid_t child_    = -1;
};

}  // namespace

TEST(PostAtOnce, EveryMailArrivesOnce)
{
    temp_dir const    dir;
    std::string const workdir = dir.file("w");
    ASSERT_EQ(::mkdir(workdir.c_str(), 0777), 0);

    // The processes are made while this one has a single thread.
    std::vector<posting_process> processes;
    for (int i = 0; i < process_count; ++i) {
        processes.emplace_back(workdir, thread_count + i);
    }
    mail_server server;
    write_file(workdir + "/zelismes.cf",
               settings_for(server.smtp_port()) + "subject_use_encoding = no\r\n");

    std::vector<int>         failures(thread_count, -1);
    std::vector<std::thread> threads;
    for (posting_process& process : processes) {
        process.start();
    }
    for (int i = 0; i < thread_count; ++i) {
        threads.emplace_back(
            [&, i] { failures[static_cast<std::size_t>(i)] = post_mails(workdir, i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (posting_process& process : processes) {
        EXPECT_EQ(process.failures(), 0);
    }
    EXPECT_EQ(failures, std::vector<int>(thread_count, 0));

    EXPECT_TRUE(server.wait_for_mails(posters * mails_of_each));
    strings wanted;
    for (int poster = 0; poster < posters; ++poster) {
        strings const its = numbered(std::to_string(poster), mails_of_each);
        wanted.insert(wanted.end(), its.begin(), its.end());
    }
    EXPECT_EQ(sorted(subjects_of(server.mails())), sorted(wanted));
    EXPECT_EQ(messages_in(workdir), strings());
    EXPECT_EQ(list_directory(dir.path()), strings{"w"});
}
