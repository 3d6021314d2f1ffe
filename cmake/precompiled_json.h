// The JSON library, read once for all sources that use it in a build for tests. Its functions are compiled once, too,
// in precompiled_json.cpp.
#ifndef CMAKE_PRECOMPILED_JSON_H
#define CMAKE_PRECOMPILED_JSON_H

#include <nlohmann/json.hpp>

extern template class nlohmann::basic_json<>;
extern template class nlohmann::basic_json<nlohmann::ordered_map>;
extern template class nlohmann::detail::serializer<nlohmann::json>;
extern template class nlohmann::detail::serializer<nlohmann::ordered_json>;

#endif
