#define _POSIX_C_SOURCE 200809L

#include "bench/bare_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

/* What came of a peer, and how far it has been read. */
struct reader {
    int    fd;
    char   bytes[16384];
    size_t have;
    size_t used;
};

/* The next line with its LF, not ended by a NUL; NULL when the peer is gone or the line too long. */
static char const* next_line(struct reader* in, size_t* length)
{
    for (;;) {
        char const* const start = in->bytes + in->used;
        char const* const lf    = memchr(start, '\n', in->have - in->used);
        ssize_t           got;
        if (lf != NULL) {
            *length = (size_t)(lf - start) + 1;
            in->used += *length;
            return start;
        }
        memmove(in->bytes, start, in->have - in->used);
        in->have -= in->used;
        in->used = 0;
        got      = recv(in->fd, in->bytes + in->have, sizeof in->bytes - in->have, 0);
        if (got <= 0) {
            return NULL;
        }
        in->have += (size_t)got;
    }
}

/* Sends a command, unless it is null. Gives the reply's one line if it begins with code. */
static char const* step(struct reader* in, char const* command, char const* code)
{
    size_t      length = 0;
    char const* line;

    if (command != NULL) {
        length = strlen(command);
        if (send(in->fd, command, length, MSG_NOSIGNAL) != (ssize_t)length) {
            return NULL;
        }
    }
    line = next_line(in, &length);
    if (line == NULL || length < strlen(code) || memcmp(line, code, strlen(code)) != 0) {
        return NULL;
    }
    return line;
}

/* Connects to a port of 127.0.0.1. Returns a descriptor, or -1. */
static int connect_to(int port)
{
    struct sockaddr_in peer;
    int                on = 1;
    int                fd = socket(AF_INET, SOCK_STREAM, 0);

    if (fd < 0) {
        return -1;
    }
    memset(&peer, 0, sizeof peer);
    peer.sin_family      = AF_INET;
    peer.sin_port        = htons((unsigned short)port);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(fd, (struct sockaddr*)&peer, sizeof peer) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* The end of a connection is part of what the server sees: we close first. */
static int end_connection(int fd)
{
    char rest[64];
    return shutdown(fd, SHUT_WR) == 0 && recv(fd, rest, sizeof rest, 0) == 0 ? 0 : -1;
}

int bare_client_send(int port, char const* helo, char const* from, char const* to, char const* text)
{
    struct reader in;
    int           status = -1;

    in.have = in.used = 0;
    in.fd             = connect_to(port);
    if (in.fd < 0) {
        return -1;
    }
    if (step(&in, NULL, "220") != NULL && step(&in, helo, "250") != NULL &&
        step(&in, from, "250") != NULL && step(&in, to, "250") != NULL &&
        step(&in, "data\r\n", "354") != NULL && step(&in, text, "250") != NULL &&
        step(&in, "quit\r\n", "221") != NULL) {
        status = end_connection(in.fd);
    }
    close(in.fd);
    return status;
}

/* Reads the lines of a mail up to the one that ends it. */
static int read_mail(struct reader* in)
{
    for (;;) {
        size_t            length = 0;
        char const* const line   = next_line(in, &length);
        if (line == NULL) {
            return -1;
        }
        if (length == 3 && memcmp(line, ".\r\n", 3) == 0) {
            return 0;
        }
    }
}

int bare_client_receive(int port, char const* user, char const* pass)
{
    struct reader in;
    char const*   stat;
    int           count  = 0;
    int           status = -1;

    in.have = in.used = 0;
    in.fd             = connect_to(port);
    if (in.fd < 0) {
        return -1;
    }
    if (step(&in, NULL, "+OK") != NULL && step(&in, user, "+OK") != NULL &&
        step(&in, pass, "+OK") != NULL && (stat = step(&in, "stat\r\n", "+OK ")) != NULL) {
        count = atoi(stat + 4);
        if ((count == 0 || (step(&in, "retr 1\r\n", "+OK") != NULL && read_mail(&in) == 0 &&
                            step(&in, "dele 1\r\n", "+OK") != NULL)) &&
            step(&in, "quit\r\n", "+OK") != NULL) {
            status = end_connection(in.fd);
        }
    }
    close(in.fd);
    return status == 0 ? count : -1;
}
