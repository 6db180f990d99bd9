#pragma once

#include <QJsonObject>
#include <QString>

namespace JwProbe {

struct SearchResult;

/// The result for people: a table, what the other ports did, and what can be done about missing boards; at most `width`
/// columns where that can be had, 0 for no limit.
QString reportText(const SearchResult &result, int width);

/// The result for programs, in the shape that --help describes.
QJsonObject reportJson(const SearchResult &result);

} // namespace JwProbe
