/* stdio.h - streams and formats */

#ifndef ZELIEML_SDK_STDIO_H
#define ZELIEML_SDK_STDIO_H

#include <stdarg.h>
#include <sys/types.h>

typedef struct __sFILE FILE;
typedef off_t          fpos_t;

extern FILE* __stdinp  SDK_SINCE(10.0);
extern FILE* __stdoutp SDK_SINCE(10.0);
extern FILE* __stderrp SDK_SINCE(10.0);
#define stdin  __stdinp
#define stdout __stdoutp
#define stderr __stderrp

#define EOF          (-1)
#define BUFSIZ       1024
#define FOPEN_MAX    20
#define FILENAME_MAX 1024
#define L_tmpnam     1024
#define TMP_MAX      308915776
#define SEEK_SET     0
#define SEEK_CUR     1
#define SEEK_END     2
#define _IOFBF       0
#define _IOLBF       1
#define _IONBF       2

SINCE(10.0)
void   clearerr(FILE* stream);
int    fclose(FILE* stream);
int    feof(FILE* stream);
int    ferror(FILE* stream);
int    fflush(FILE* stream);
int    fgetc(FILE* stream);
int    fgetpos(FILE* stream, fpos_t* at);
char*  fgets(char* text, int size, FILE* stream);
FILE*  fopen(char const* path, char const* mode) SDK_UNIX03(fopen);
int    fprintf(FILE* stream, char const* format, ...);
int    fputc(int c, FILE* stream);
int    fputs(char const* text, FILE* stream) SDK_UNIX03(fputs);
size_t fread(void* bytes, size_t size, size_t count, FILE* stream);
FILE*  freopen(char const* path, char const* mode, FILE* stream) SDK_UNIX03(freopen);
int    fscanf(FILE* stream, char const* format, ...);
int    fseek(FILE* stream, long to, int from);
int    fseeko(FILE* stream, off_t to, int from);
int    fsetpos(FILE* stream, fpos_t const* at);
long   ftell(FILE* stream);
off_t  ftello(FILE* stream);
size_t fwrite(void const* bytes, size_t size, size_t count, FILE* stream) SDK_UNIX03(fwrite);
int    getc(FILE* stream);
int    getchar(void);
char*  gets(char* text);
void   perror(char const* text);
int    printf(char const* format, ...);
int    putc(int c, FILE* stream);
int    putchar(int c);
int    puts(char const* text);
int    remove(char const* path);
int    rename(char const* from, char const* to);
void   rewind(FILE* stream);
int    scanf(char const* format, ...);
void   setbuf(FILE* stream, char* buffer);
int    setvbuf(FILE* stream, char* buffer, int mode, size_t size);
int    snprintf(char* text, size_t size, char const* format, ...);
int    sprintf(char* text, char const* format, ...);
int    sscanf(char const* text, char const* format, ...);
FILE*  tmpfile(void);
char*  tmpnam(char* name);
int    ungetc(int c, FILE* stream);
int    vfprintf(FILE* stream, char const* format, va_list args);
int    vfscanf(FILE* stream, char const* format, va_list args);
int    vprintf(char const* format, va_list args);
int    vscanf(char const* format, va_list args);
int    vsnprintf(char* text, size_t size, char const* format, va_list args);
int    vsprintf(char* text, char const* format, va_list args);
int    vsscanf(char const* text, char const* format, va_list args);
FILE*  fdopen(int fd, char const* mode) SDK_UNIX03(fdopen);
int    fileno(FILE* stream);
int    vasprintf(char** text, char const* format, va_list args);
END_SINCE

#endif
