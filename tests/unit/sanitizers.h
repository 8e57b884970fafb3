// Whether this program is built with the address sanitizer: GCC and the older Clang say it in
// different words.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZED 1
#endif
#endif
