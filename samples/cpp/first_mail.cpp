/*
 * Sends one HTML mail with a logo and an attachment and says what went wrong where that fails.
 *
 * In the folder "samples", where logo.png and report.txt lie; USER PASSWORD may follow for a login.
 *
 * Linux:
 *     c++ -std=c++17 cpp/first_mail.cpp -o first_mail -I../include -I../bindings/cpp -L../lib -lemailsending
 *     LD_LIBRARY_PATH=../lib ./first_mail mail.example.com 25 me@example.com you@example.com
 * Windows (x64 for x86 in all lines: 64 bits), MinGW or Microsoft's compiler:
 *     g++ -std=c++17 -static cpp/first_mail.cpp -o first_mail.exe -I../include -I../bindings/cpp ../x86/libemailsending.dll.a
 *     cl /EHsc /std:c++17 /utf-8 cpp\first_mail.cpp /I..\include /I..\bindings\cpp ..\x86\emailsending.lib
 *     copy ..\x86\emailsending.dll .
 *     first_mail mail.example.com 25 me@example.com you@example.com
 */
#include <cstdio>
#include <cstdlib>

#include "emailsending.hpp"

int main(int argc, char** argv) {
    if ((argc != 5 && argc != 7) || std::atoi(argv[2]) < 1) {
        std::fprintf(stderr, "%s HOST PORT FROM TO [USER PASSWORD]\n", argv[0]);
        return 1;
    }
    emailsending::Session session;
    session.host(argv[1]).port(std::atoi(argv[2]));
    // A server without STARTTLS does not get the password.
    if (argc == 7) session.start_tls().user(argv[5]).password(argv[6]);

    emailsending::Message message(session);
    message.from(argv[3]).to(argv[4]).subject("Report for Łódź: 1200 €");
    message.html("<html><body>{LOGO}<p>Żaneta, the report is attached.</p></body></html>",
                 "logo.png");
    message.attach("report.txt");
    // Where the recipient is no address or a file cannot be read, it says so here, and nothing goes
    // out.
    const emailsending::Result sent = message.send();
    if (!sent) std::fprintf(stderr, "%s\n", sent.error().c_str());
    return sent ? 0 : 1;
}
