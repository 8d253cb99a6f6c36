// Calls every method of the C++ classes.
#include <cstdio>

#include "emailsending.hpp"

int main() {
    emailsending::Session session;
    emailsending::Message message(session);
    // CALLS
    std::puts(getLastError());
}
