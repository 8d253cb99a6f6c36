// libcrypto as the judge of our primitives, where it is installed.
#pragma once

#ifdef TV_HAVE_LIBCRYPTO
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/md4.h>
#include <openssl/md5.h>
#include <openssl/rc4.h>
#include <openssl/sha.h>
#endif
