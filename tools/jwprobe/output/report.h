#pragma once

#include <QJsonObject>
#include <QString>

namespace JwProbe {

struct SearchResult;

/// Returns the result for people: a table, what the other ports did, and advice for missing boards. Lines are broken at
/// `width` columns if possible. If `width` is 0, lines are not broken.
QString reportText(const SearchResult &result, int width);

/// Returns the result for programs. The text of --help describes the keys.
QJsonObject reportJson(const SearchResult &result);

} // namespace JwProbe
