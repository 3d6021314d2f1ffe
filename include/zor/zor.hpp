/// @file
/// The message bus for C++17 and later, in one header over the C library: link with msgapi as before.
///
///     zor::Bus bus("thermo");
///     bus.serve(0x6101, [&] { return zor::Json{{"actual", actual}}; });
///     bus.every(500ms, [&] { if (step()) bus.publish("thermo", "reached", {{"actual", actual}}); });
///     return bus.run();
///
/// Errors are exceptions (<zor/cpp/error.hpp>); every function that may fail in an expected way also exists as
/// try_NAME, which returns a zor::Result. With -fno-exceptions only those are of use: the others end the process.
/// Coroutines take C++20. Small value types for character sets, masking, DNS and URLs are in <zor/cpp/charset.hpp>,
/// <zor/cpp/blur.hpp>, <zor/cpp/dns.hpp> and <zor/cpp/url.hpp>.
#ifndef ZOR_ZOR_HPP
#define ZOR_ZOR_HPP

#include <zor/cpp/bus.hpp>

#endif
