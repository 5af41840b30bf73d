// Lookups in the code tables. They never insert: an absent key reads as an empty value, which is
// what the tables mean by "no text", and the tables stay untouched after load, so any number of
// threads may read them at once.
#pragma once

template <typename Map>
const typename Map::mapped_type& valueOrEmpty(const Map& map, const typename Map::key_type& key) {
    static const typename Map::mapped_type empty{};
    const auto found = map.find(key);
    return found == map.end() ? empty : found->second;
}
