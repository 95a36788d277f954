// What the tool takes from POSIX and Windows has under other names. Every source of
// the tool sees it there before anything else.
#pragma once

#include <signal.h>
#include <stdio.h>
#include <sys/types.h>
#include <wchar.h>

// No terminal hangs up here.
#define SIGHUP SIGTERM

// Makes a directory of a name that ends in XXXXXX, which are replaced; null if that
// failed.
char* mkdtemp(char* pattern);

// Reads a line, its end included, into a buffer from malloc that grows as need be;
// its length, or -1 at the end of the file.
ssize_t getline(char** line, size_t* room, FILE* file);

int setenv(const char* name, const char* value, int replace);

// The columns of a character on a terminal: 2 for those of East Asia, 0 for marks
// that stand on the character before, -1 for controls.
int wcwidth(wchar_t character);
