/*
 * passwords.c - encrypt and decrypt stored passwords, and wait
 *
 *     passwords COUNT
 *
 * Its memory, looked at from outside while it waits, must not grow with the count: see
 * docs/PORTING.md.
 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zelieml.h>

int main(int argc, char** argv)
{
    unsigned char password[] = "secret";
    int           count      = argc > 1 ? atoi(argv[1]) : 1;
    int           i;
    for (i = 0; i < count; ++i) {
        unsigned char* stored = eml_encrypt_passwd(password);
        unsigned char* clear  = stored != 0 ? eml_decrypt_passwd(stored) : 0;
        int            same   = clear != 0 && strcmp((char*)clear, (char*)password) == 0;
        eml_decrypt_free_passwd(clear);
        eml_encrypt_free_passwd(stored);
        if (!same) {
            fprintf(stderr, "passwords: number %d did not come back\n", i);
            return 1;
        }
    }
    printf("%d passwords; Return ends the program\n", count);
    fflush(stdout);
    getchar();
    return 0;
}
