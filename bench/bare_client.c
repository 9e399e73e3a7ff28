#define _POSIX_C_SOURCE 200809L

#include "bench/bare_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <nettle/base16.h>
#include <nettle/base64.h>
#include <nettle/hmac.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
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

static int send_all(int fd, char const* bytes, size_t length)
{
    while (length > 0) {
        ssize_t const sent = send(fd, bytes, length, MSG_NOSIGNAL);
        if (sent <= 0) {
            return -1;
        }
        bytes += sent;
        length -= (size_t)sent;
    }
    return 0;
}

/* Gives the last line of a reply if it begins with code. */
static char const* reply(struct reader* in, char const* code)
{
    size_t      length = 0;
    char const* line;

    do {
        line = next_line(in, &length);
        if (line == NULL || length < 4 || memcmp(line, code, strlen(code)) != 0) {
            return NULL;
        }
    } while (line[3] == '-');
    return line;
}

/* Sends a command, unless it is null. Gives the last line of a reply that begins with code. */
static char const* step(struct reader* in, char const* command, char const* code)
{
    if (command != NULL && send_all(in->fd, command, strlen(command)) != 0) {
        return NULL;
    }
    return reply(in, code);
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

/* Logs in with CRAM-MD5. Returns 0 or -1. */
static int log_in(struct reader* in, char const* user, char const* password)
{
    char const* const        line = step(in, "auth cram-md5\r\n", "334 ");
    struct base64_decode_ctx from;
    struct hmac_md5_ctx      hmac;
    uint8_t                  challenge[256];
    size_t                   length = sizeof challenge;
    size_t                   coded  = 0;
    uint8_t                  digest[MD5_DIGEST_SIZE];
    char                     answer[256];
    char                     sent[512];
    int                      size;

    if (line == NULL) {
        return -1;
    }
    coded = strcspn(line + 4, "\r\n");
    if (coded > 256) {
        return -1;
    }
    base64_decode_init(&from);
    if (!base64_decode_update(&from, &length, challenge, coded, line + 4)) {
        return -1;
    }
    hmac_md5_set_key(&hmac, strlen(password), (uint8_t const*)password);
    hmac_md5_update(&hmac, length, challenge);
    hmac_md5_digest(&hmac, sizeof digest, digest);
    size = snprintf(answer, sizeof answer - BASE16_ENCODE_LENGTH(sizeof digest), "%s ", user);
    if (size < 0 || (size_t)size >= sizeof answer - BASE16_ENCODE_LENGTH(sizeof digest)) {
        return -1;
    }
    base16_encode_update(answer + size, sizeof digest, digest);
    length = (size_t)size + BASE16_ENCODE_LENGTH(sizeof digest);
    base64_encode_raw(sent, length, (uint8_t const*)answer);
    memcpy(sent + BASE64_ENCODE_RAW_LENGTH(length), "\r\n", 3);
    return step(in, sent, "235") != NULL ? 0 : -1;
}

int bare_client_send(int port, struct bare_mail const* mail)
{
    struct reader in;
    int           status = -1;

    in.have = in.used = 0;
    in.fd             = connect_to(port);
    if (in.fd < 0) {
        return -1;
    }
    if (step(&in, NULL, "220") != NULL && step(&in, mail->hello, "250") != NULL &&
        (mail->user == NULL || log_in(&in, mail->user, mail->password) == 0) &&
        step(&in, mail->from, "250") != NULL && step(&in, mail->to, "250") != NULL &&
        step(&in, "data\r\n", "354") != NULL && send_all(in.fd, mail->text, mail->length) == 0 &&
        reply(&in, "250") != NULL && step(&in, "quit\r\n", "221") != NULL) {
        status = end_connection(in.fd);
    }
    close(in.fd);
    return status;
}

/* Writes a new file. Returns 0 or -1. */
static int write_file(char const* path, char const* bytes, size_t length)
{
    int const fd     = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    int       status = 0;

    if (fd < 0) {
        return -1;
    }
    while (length > 0 && status == 0) {
        ssize_t const done = write(fd, bytes, length);
        if (done <= 0) {
            status = -1;
        } else {
            bytes += done;
            length -= (size_t)done;
        }
    }
    return close(fd) == 0 ? status : -1;
}

/* Reads a whole file, and throws away what it read. Returns 0 or -1. */
static int read_file(char const* path)
{
    int const   fd = open(path, O_RDONLY | O_CLOEXEC);
    struct stat is;
    char*       all;
    int         status = -1;

    if (fd < 0) {
        return -1;
    }
    if (fstat(fd, &is) == 0 && (all = malloc((size_t)is.st_size + 1)) != NULL) {
        ssize_t have = 0;
        ssize_t got;
        do {
            got = read(fd, all + have, (size_t)(is.st_size - have) + 1);
            have += got;
        } while (got > 0 && have < is.st_size);
        status = have == is.st_size ? 0 : -1;
        free(all);
    }
    close(fd);
    return status;
}

int bare_client_post(int port, struct bare_mail const* mail, struct bare_files const* files)
{
    if (write_file(files->message, files->record, files->length) != 0 ||
        read_file(files->settings) != 0 || read_file(files->message) != 0 ||
        bare_client_send(port, mail) != 0) {
        return -1;
    }
    return unlink(files->message);
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
