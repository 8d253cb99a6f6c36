/* Sends e-mail: the 24 functions of the plug-in, for C and C++ hosts on Windows and Linux. */
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

int EMAILSENDING_CALL Initialise(void);
void EMAILSENDING_CALL setSmtpHost(const char* host);
void EMAILSENDING_CALL setSmtpPort(int port);
void EMAILSENDING_CALL setFromAddress(const char* address);
void EMAILSENDING_CALL setSmtpPassword(const char* password);
int EMAILSENDING_CALL setNoopCount(int count);
void EMAILSENDING_CALL setSmtpUser(const char* user);
void EMAILSENDING_CALL setUseSSL(int flag);
void EMAILSENDING_CALL setStartTls(int flag);
void EMAILSENDING_CALL setLogging(void);
void EMAILSENDING_CALL setVerboseLogging(void);
int EMAILSENDING_CALL setDefaultNtlmVersion(int version);
void EMAILSENDING_CALL setSmtpAuthMethod(const char* method);
void EMAILSENDING_CALL setLoginDomain(const char* domain);
void EMAILSENDING_CALL setSubject(const char* subject);
void EMAILSENDING_CALL setAttachment(const char* path);
void EMAILSENDING_CALL setLogo(const char* path);
void EMAILSENDING_CALL setBody(const char* body);
int EMAILSENDING_CALL setRecipient(const char* address);
int EMAILSENDING_CALL setCC(const char* address);
int EMAILSENDING_CALL setBCC(const char* address);
int EMAILSENDING_CALL szBrisko(void);
const char* EMAILSENDING_CALL getLastError(void);
void EMAILSENDING_CALL ResetEmail(void);

#ifdef __cplusplus
}
#endif

#endif
