// send PORT RECIPIENT: sends a message by the C++ classes and prints "sent", or why not.
#include <cstdio>
#include <string>

#include "emailsending.hpp"

int main(int, char** arguments) {
    emailsending::Session session;
    session.host("127.0.0.1").port(std::stoi(arguments[1]));
    emailsending::Message message(session);
    message.from("Łukasz <me@example.test>").to(arguments[2]).subject("Łódź: 1200 €");
    message.html("<p>ő</p>").attach("ő €.txt");
    try {
        message.send_or_throw();
        std::puts("sent");
    } catch (const emailsending::SendError& error) {
        std::puts(error.what());
    }
    // What lacks a file or a recipient is not sent.
    message.reset();
    message.to("nobody").attach("no such file.txt").attach("ő €.txt");
    std::puts(message.send().error().c_str());
    message.reset();
    std::puts(message.to(";").to(arguments[2]).send().error().c_str());
}
