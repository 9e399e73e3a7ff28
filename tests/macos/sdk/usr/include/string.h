/* string.h - bytes and texts in memory */

#ifndef ZELIEML_SDK_STRING_H
#define ZELIEML_SDK_STRING_H

#include <sys/types.h>

SINCE(10.0)
void*  memchr(void const* bytes, int c, size_t size);
int    memcmp(void const* one, void const* other, size_t size);
void*  memcpy(void* to, void const* from, size_t size);
void*  memmove(void* to, void const* from, size_t size);
void*  memset(void* bytes, int c, size_t size);
char*  strcat(char* to, char const* from);
char*  strchr(char const* text, int c);
int    strcmp(char const* one, char const* other);
int    strcoll(char const* one, char const* other);
char*  strcpy(char* to, char const* from);
size_t strcspn(char const* text, char const* set);
char*  strerror(int error) SDK_UNIX03(strerror);
int    strerror_r(int error, char* text, size_t size);
size_t strlen(char const* text);
char*  strncat(char* to, char const* from, size_t size);
int    strncmp(char const* one, char const* other, size_t size);
char*  strncpy(char* to, char const* from, size_t size);
char*  strpbrk(char const* text, char const* set);
char*  strrchr(char const* text, int c);
size_t strspn(char const* text, char const* set);
char*  strstr(char const* text, char const* part);
char*  strtok(char* text, char const* set);
char*  strtok_r(char* text, char const* set, char** rest);
size_t strxfrm(char* to, char const* from, size_t size);
char*  strdup(char const* text);
END_SINCE

#endif
