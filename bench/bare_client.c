#define _POSIX_C_SOURCE 200809L

#include "bench/bare_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

/* Sends a command, unless it is null, and reads a reply of one line that begins with code. */
static int step(int fd, char const* command, char const* code)
{
    char    reply[512];
    size_t  have = 0;
    ssize_t got;

    if (command != NULL) {
        size_t length = strlen(command);
        if (send(fd, command, length, MSG_NOSIGNAL) != (ssize_t)length) {
            return -1;
        }
    }
    do {
        got = recv(fd, reply + have, sizeof reply - have, 0);
        if (got <= 0) {
            return -1;
        }
        have += (size_t)got;
    } while (memchr(reply, '\n', have) == NULL && have < sizeof reply);
    return strncmp(reply, code, 3) == 0 ? 0 : -1;
}

int bare_client_send(int port, char const* helo, char const* from, char const* to, char const* text)
{
    struct sockaddr_in peer;
    int                on     = 1;
    int                status = -1;
    int                fd     = socket(AF_INET, SOCK_STREAM, 0);

    if (fd < 0) {
        return -1;
    }
    memset(&peer, 0, sizeof peer);
    peer.sin_family      = AF_INET;
    peer.sin_port        = htons((unsigned short)port);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(fd, (struct sockaddr*)&peer, sizeof peer) == 0 && step(fd, NULL, "220") == 0 &&
        step(fd, helo, "250") == 0 && step(fd, from, "250") == 0 && step(fd, to, "250") == 0 &&
        step(fd, "data\r\n", "354") == 0 && step(fd, text, "250") == 0 &&
        step(fd, "quit\r\n", "221") == 0) {
        /* The end of the connection is part of what the server sees: it closes first. */
        char rest[64];
        if (shutdown(fd, SHUT_WR) == 0 && recv(fd, rest, sizeof rest, 0) == 0) {
            status = 0;
        }
    }
    close(fd);
    return status;
}
