// SPDX-License-Identifier: MIT
// QUOR_API marks what libQUOR_SteeringAPI exports. The library is built
// with hidden visibility: only the classes and functions declared with
// QUOR_API (those of include/quor/) are visible to the programs that link
// it; everything else stays inside the library.
#ifndef QUOR_EXPORT_H
#define QUOR_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define QUOR_API __attribute__((visibility("default")))
#else
#define QUOR_API
#endif

#endif  // QUOR_EXPORT_H
