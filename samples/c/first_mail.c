/*
 * Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
 *
 * In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.
 *
 * Linux:
 *     cc c/first_mail.c -o first_mail -I../include -L../lib -lemailsending
 *     LD_LIBRARY_PATH=../lib ./first_mail mail.example.com 25 me@example.com you@example.com
 * Windows (x64 for x86 in all lines: 64 bits), MinGW or Microsoft's compiler:
 *     gcc c/first_mail.c -o first_mail.exe -I../include ../x86/libemailsending.dll.a
 *     cl /utf-8 c\first_mail.c /I..\include ..\x86\emailsending.lib
 *     copy ..\x86\emailsending.dll .
 *     first_mail mail.example.com 25 me@example.com you@example.com
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "emailsending.h"

/* The line of getLastError's text that says what went wrong. */
static void telling_line(const char* text, char* line, size_t size) {
    const int trial = strstr(text, "TolvaneLog:") != NULL; /* its log; else a dialogue */
    for (*line = 0; *text; text += strspn(text, " \r\n")) {
        const size_t length = strcspn(text, "\r\n"), word = strcspn(text, " \r\n");
        const size_t shown = length < size ? length : size - 1;
        const int frame = !strncmp(text, "--", 2) || (word && text[word - 1] == ':') ||
                          !strncmp(text, "Failed", 6) || !strncmp(text, "Terminated", 10);
        if (length && !(trial && frame)) line[shown] = 0, memcpy(line, text, shown);
        text += length;
    }
}

/* setLogo and setAttachment have no result: what they are to take is tried before. */
static int readable(const char* path) {
    FILE* const file = fopen(path, "rb");
    const int good = file && (fgetc(file) != EOF || feof(file));
    if (file) fclose(file);
    if (!good) fprintf(stderr, "%s cannot be read\n", path);
    return good;
}

int main(int argc, char** argv) {
    char line[500];
    if ((argc != 5 && argc != 7) || atoi(argv[2]) < 1) {
        fprintf(stderr, "%s HOST PORT FROM TO [USER PASSWORD]\n", argv[0]);
        return 1;
    }
    Initialise();
    setSmtpHost(argv[1]);
    setSmtpPort(atoi(argv[2]));
    if (argc == 7) {
        setStartTls(1); /* a server without it does not get the password */
        setSmtpUser(argv[5]);
        setSmtpPassword(argv[6]);
    }
    setFromAddress(argv[3]);
    if (!setRecipient(argv[4])) { /* or it would go out without */
        fprintf(stderr, "%s is no address\n", argv[4]);
        return 1;
    }
    setSubject("Report for Łódź: 1200 €");
    setBody("<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>");
    if (!readable("logo.png") || !readable("report.txt")) return 1;
    setLogo("logo.png"); /* always after setBody: it hands the body over */
    setAttachment("report.txt");
    if (szBrisko()) return 0;
    telling_line(getLastError(), line, sizeof line);
    fprintf(stderr, "%s\n", line);
    return 1;
}
