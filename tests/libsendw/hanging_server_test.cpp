// hanging_server_test.cpp - a server that neither replies nor closes

#include "libsendw/smtp_converse.h"

#include <atomic>
#include <sys/socket.h>

#include "tests/support/clean_machine.h"
#include "tests/support/peers.h"
#include "tests/support/threads.h"

namespace zelieml::test
{

class HangingServer : public on_a_clean_machine
{
};

TEST_F(HangingServer, HoldsASessionThatIsGivenUpUntilItCloses)
{
    listening_socket  door;
    std::string       reply  = "none";
    int               result = send_ok;
    std::atomic<bool> hangs{false};

    reset_waits_until([&] { return hangs.load(); });
    waiter    client([&] {
        result = smtp_converse("127.0.0.1", door.port(), reply, [](_s_smtp* session) {
            return smtp_helo(session) == 0 ? send_ok : send_helo_refused;
        });
    });
    unique_fd server = door.accept();
    send_all(server.get(), "220 mail.test ready\r\n");
    char command[64];
    EXPECT_GT(::recv(server.get(), command, sizeof command, 0), 0);
    hangs = true;
    EXPECT_EQ(::recv(server.get(), command, sizeof command, 0), 0) << "it has given up";
    EXPECT_TRUE(client.gets_blocked());

    server.reset();
    client.join();
    EXPECT_EQ(result, send_helo_refused);
    EXPECT_EQ(reply, "") << "of the last command";
}

}  // namespace zelieml::test
