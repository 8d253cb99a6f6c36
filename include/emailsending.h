/*
 * Sends e-mail: the 24 functions of the plug-in, for C and C++ hosts on Windows and Linux.
 *
 * One message at a time:
 *
 *     Initialise();
 *     setSmtpHost("mail.example.com");
 *     setFromAddress("me@example.com");
 *     if (!setRecipient("you@example.com")) ...   // no address: do not send it without
 *     setSubject("Hello");
 *     setBody("<p>Hello</p>{LOGO}");
 *     setLogo("logo.png");               // always after setBody: it hands the body over
 *     if (!szBrisko()) puts(getLastError());
 *
 * Windows: there is an emailsending.dll for 32-bit hosts and one for 64-bit hosts. In 32 bits its
 * functions are stdcall, exported with a leading underscore and the bytes of their arguments
 * ("_setSmtpHost@4", "_szBrisko@0"); in 64 bits they have the system's one calling convention and
 * are exported by their plain names ("setSmtpHost"). Link with libemailsending.dll.a of the same
 * folder or look the names up. Linux: libemailsending.so exports the plain names.
 *
 * Strings are zero-terminated and belong to the caller: each is read during the call and copied.
 * NULL is the empty string. Server name, user, password, login method, login domain and the text of
 * getLastError are in the ANSI code page of the process (Linux: UTF-8, unless LC_ALL, LC_CTYPE or
 * LANG names another charset). Sender, recipients, subject, body and file names are UTF-8; bytes
 * that are not UTF-8 are taken as ANSI text.
 *
 * Numbers are 32 bits. Results that are flags are int and exactly 0 or 1. Of a flag that is passed
 * in, the lowest byte counts: 256 is false.
 *
 * A host may call with any floating-point control word and, on i386, with a stack that is aligned
 * to 4 bytes; the library sets and restores what it needs. No C++ exception leaves a function. The
 * library starts no thread. It may be unloaded whenever none of its functions runs; an open
 * connection is then dropped.
 *
 * Every function may be called from any thread at any time. All threads share one set of server
 * settings and one message, and one call at a time works on them: while szBrisko runs, another
 * szBrisko, ResetEmail and whatever sets something in the settings or in the message WAIT until it
 * has ended, for minutes if need be, and then do their work. (Were they refused instead, a message
 * would go out without its recipient, its subject or its encryption, and nobody would know.) So a
 * user interface that must not wait for a server calls them from the thread that sends - or calls
 * Initialise, which does not wait: from then on there are new settings and a new message, which can
 * be set and sent at once, while the send under way finishes with what it began with. setBody,
 * setNoopCount, setDefaultNtlmVersion and getLastError do not wait either.
 *
 * While setAttachment shows its message box nothing is locked: timers and windows of the host that
 * run meanwhile may call every function, in the same thread and in others. Where a hook or an
 * asynchronous procedure call brings host code into a thread in the midst of a function, a call
 * that would have to wait for that same function does nothing and returns 0; Initialise and those
 * that do not wait work as ever.
 *
 * Before the first Initialise, a function that works on the server's settings or on the message
 * does nothing and returns 0.
 */
#ifndef EMAILSENDING_H
#define EMAILSENDING_H

#ifdef _WIN32
#define EMAILSENDING_CALL __stdcall
#else
#define EMAILSENDING_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Makes the server's settings and the message anew, with their defaults; what an earlier call made
 * is dropped, an open connection with it (which may take a second). A send that runs in another
 * thread is not disturbed. The body of setBody and the last error stay. Returns 0.
 */
int EMAILSENDING_CALL Initialise(void);

/* ---- The server. These settings hold until the next Initialise; none of them can fail. ---- */

/*
 * Name or address of the mail server. Letters are made lower-case, "http://", "https://" and "/"
 * are removed, and so is white space at both ends. ANSI. A name that does not exist shows in
 * szBrisko.
 */
void EMAILSENDING_CALL setSmtpHost(const char* host);

/*
 * Port of the mail server, 25 at first. 0 is ignored; any other value is kept as it is. The usual
 * ports correct the encryption when a message is sent: 465 is encrypted from the first byte, 25
 * never is, 110 and 143 become 25.
 */
void EMAILSENDING_CALL setSmtpPort(int port);

/* User name for the login; empty (the default) for none. ANSI. */
void EMAILSENDING_CALL setSmtpUser(const char* user);

/*
 * Password for the login. ANSI. The library's copy appears in no log and no error text and is wiped
 * from memory when it is replaced.
 */
void EMAILSENDING_CALL setSmtpPassword(const char* password);

/*
 * Login method: "LOGIN", "PLAIN", "CRAM-MD5", "NTLM" or "NONE" in any letter case; empty (the
 * default) takes the first of LOGIN, NTLM, CRAM-MD5 and PLAIN that the server offers. A text of
 * several words counts as the first of LOGIN, PLAIN and NTLM that it contains. ANSI. XOAUTH2 needs
 * an access token, and none of these functions takes one: it cannot be reached from here.
 */
void EMAILSENDING_CALL setSmtpAuthMethod(const char* method);

/* Windows domain for an NTLM login. ANSI. */
void EMAILSENDING_CALL setLoginDomain(const char* domain);

/*
 * Version of NTLM for logins: 1, or any other value for version 2, the default. Holds for the whole
 * process, whatever Initialise does, and may be set before it. Returns version.
 */
int EMAILSENDING_CALL setDefaultNtlmVersion(int version);

/* TLS from the first byte of the connection (port 465). Off at first. */
void EMAILSENDING_CALL setUseSSL(int flag);

/*
 * TLS by STARTTLS after the greeting; a server that does not offer it is then not used. Off at
 * first, and off again by setStartTls(0): then STARTTLS is used with a server that offers it and
 * not with others, nor with one that answers STARTTLS itself with a refusal: then all goes in
 * clear, the password too. No function turns that off: a server that offers STARTTLS and then
 * breaks off the handshake fails the send. Certificates are not verified, here as with setUseSSL:
 * TLS keeps out who listens, not who sits between and answers in the server's place.
 */
void EMAILSENDING_CALL setStartTls(int flag);

/* Kept for older hosts: the number is stored and has no effect. Returns count. */
int EMAILSENDING_CALL setNoopCount(int count);

/*
 * From now on every message that is sent is appended to "emailsending.log" in the directory that is
 * current when it is sent, between "--BEGIN SENT TOLVANE EMAIL--" and "--END SENT TOLVANE EMAIL--".
 * Each entry is the whole message as it goes over the line, with its attachments, and stands there
 * whether or not the server accepts it in the end; blind recipients and the login are not in it. On
 * Linux the file is made for its owner alone; on Windows the directory decides who may read it. Two
 * processes do not mix their entries: one waits for the other, but no longer than 2 seconds. If the
 * file cannot be opened the message is sent all the same.
 */
void EMAILSENDING_CALL setLogging(void);

/*
 * Makes the text of getLastError say more when the trial connection fails: how long each step took,
 * the codes of the replies, what TLS offered and did. Other texts stay as they are. Only Initialise
 * turns it off.
 */
void EMAILSENDING_CALL setVerboseLogging(void);

/* ---- The message. Initialise empties it; ResetEmail and each send do, too, but for the sender. */

/*
 * Sender, "me@example.com" or "My Name <me@example.com>". UTF-8. Stays for later messages, until
 * another is set or Initialise is called. A text without "@" is ignored; a missing sender shows in
 * szBrisko if the server objects to it.
 */
void EMAILSENDING_CALL setFromAddress(const char* address);

/*
 * One more recipient of its kind; several in one text are parted by ";", "," or line breaks, and
 * "Smith, Anna <anna@example.com>" is one. UTF-8. A local name without "@" is taken where it is the
 * whole text; other pieces that are no address are left out. Returns 1 if one was added at least. 0
 * means that none was: the text holds no address, or Initialise has not been called. The message
 * would go out without this recipient, and szBrisko would not know; a host that goes on in spite of
 * it has to tell its user. Whether the server takes the address shows in szBrisko.
 */
int EMAILSENDING_CALL setRecipient(const char* address);
int EMAILSENDING_CALL setCC(const char* address);
/* Blind copy: named to the server, not in the message. */
int EMAILSENDING_CALL setBCC(const char* address);

/* Subject. UTF-8; a line break becomes a blank. */
void EMAILSENDING_CALL setSubject(const char* subject);

/*
 * HTML text of the body. UTF-8. It becomes part of the message by setLogo alone and stays for later
 * messages. The first "{LOGO}" in it marks the place of the logo.
 */
void EMAILSENDING_CALL setBody(const char* body);

/*
 * Hands the body of setBody over to the message. path names an image (UTF-8) that travels along and
 * is shown where "{LOGO}" stands; with an empty path, or where the file cannot be read, "{LOGO}" is
 * removed. The kept body is changed in the same way. A failure is not reported: a host that has to
 * know opens the file first.
 */
void EMAILSENDING_CALL setLogo(const char* path);

/*
 * One more file to go with the message. path is UTF-8. A file that cannot be read is not attached,
 * the message stays as it is, and the user is told: by a message box that waits for OK; as a line
 * to the debugger where the process has no visible desktop (a service); on Linux as a line on
 * stderr. There is no result and getLastError does not change, and szBrisko sends the message
 * without the file: a host opens the file itself before it calls this, and does not send what
 * would lack it. The file is read during the call and kept in memory until it is sent.
 */
void EMAILSENDING_CALL setAttachment(const char* path);

/*
 * Drops the message: recipients, subject, body, logo, attachments. The sender, the text of setBody
 * and the server's settings stay.
 */
void EMAILSENDING_CALL ResetEmail(void);

/* ---- Sending. ---- */

/*
 * Connects to the server for a trial, then sends the message over another connection, which stays
 * open for the next. Returns 1 when the server has accepted the message for at least one recipient;
 * that it refused others is not told. Returns 0 when it has not; then getLastError tells why:
 *  - the trial failed (no server, no greeting, no encryption): the account of the trial. The
 *    message is kept, a later szBrisko may send it.
 *  - the message was refused or the connection lost: the dialogue with the server. The message is
 *    dropped, as after a success. Where the connection was lost after the whole message was out,
 *    the server may have it all the same; the text says so.
 *  - Initialise has not been called: a sentence that says so.
 *
 * It returns when all is done: in a second or two as a rule. A server is given up after 30 seconds
 * of silence; some steps are tried twice, and trial and send are two connections: count with two
 * minutes for a server that is gone. One that always says a little before the 30 seconds are over
 * is followed for up to 5 minutes in each reply, TLS handshake and block of the message, and for 10
 * in the last reply: a large message over a bad line may take hours, to a hostile server days.
 * Nothing ends it from outside.
 */
int EMAILSENDING_CALL szBrisko(void);

/*
 * What went wrong in the szBrisko that ended last, whichever thread called it; empty after a
 * success and before the first. ANSI. A host that sends from several threads at once goes by the
 * result of each szBrisko and asks right after it. The text belongs to the library and stays in
 * place until the same thread calls getLastError after another szBrisko has ended, whatever other
 * threads do meanwhile (the library keeps a text for each of the last 64 threads that asked), or
 * until the library is unloaded.
 *
 * One line of it is for a user: the last one after a failed send, the last one that is neither
 * frame nor fact after a failed trial. (A settings file may put a sentence with the remedy before
 * all, as the first line: "first-line = yes".)
 *
 *     // The line of getLastError's text that says what went wrong.
 *     static void telling_line(const char* text, char* line, size_t size) {
 *         const int trial = strstr(text, "TolvaneLog:") != NULL;  // its log; else a dialogue
 *         for (*line = 0; *text; text += strspn(text, " \r\n")) {
 *             const size_t length = strcspn(text, "\r\n"), word = strcspn(text, " \r\n");
 *             const size_t shown = length < size ? length : size - 1;
 *             const int frame = !strncmp(text, "--", 2) || (word && text[word - 1] == ':') ||
 *                               !strncmp(text, "Failed", 6) || !strncmp(text, "Terminated", 10);
 *             if (length && !(trial && frame)) line[shown] = 0, memcpy(line, text, shown);
 *             text += length;
 *         }
 *     }
 */
const char* EMAILSENDING_CALL getLastError(void);

#ifdef __cplusplus
}
#endif

#endif
