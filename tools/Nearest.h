#pragma once

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
#include <vector>

namespace kiv {

// Counts the letters that must be put in, left out or replaced to make one word of the other.
inline std::size_t Distance(const std::string& from, const std::string& to)
{
    // Element i is the distance between the letters of "from" read so far and the first i letters of "to".
    std::vector<std::size_t> distances(to.size() + 1);
    std::iota(distances.begin(), distances.end(), std::size_t{0});
    for (const char letter : from) {
        std::size_t diagonal = distances.front()++;
        for (std::size_t index = 0; index < to.size(); ++index) {
            const std::size_t replaced = diagonal + (letter == to[index] ? 0 : 1);
            diagonal = distances[index + 1];
            distances[index + 1] = std::min({replaced, diagonal + 1, distances[index] + 1});
        }
    }
    return distances.back();
}

// Returns the word that a mistyped one may stand for, or an empty text if no word is similar.
inline std::string Nearest(const std::string& given, const std::vector<std::string>& words)
{
    const auto distance = [&given](const std::string& word) { return Distance(given, word); };
    const auto nearest = std::ranges::min_element(words, {}, distance);
    const bool isLike = nearest != words.end() && distance(*nearest) <= std::max<std::size_t>(2, nearest->size() / 3);
    return isLike ? *nearest : std::string();
}

// Returns the end of a message about a mistyped word: "; did you mean surround-set?". Empty if no word is similar.
inline std::string DidYouMean(const std::string& given, const std::vector<std::string>& words)
{
    const std::string nearest = Nearest(given, words);
    return nearest.empty() ? nearest : "; did you mean " + nearest + "?";
}

} // namespace kiv
