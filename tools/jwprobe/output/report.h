#pragma once

#include <QJsonObject>
#include <QString>

namespace JwProbe {

struct SearchResult;

/// The result for people: a table, what the other ports did, and advice for missing boards. Lines are broken at `width`
/// columns where possible; 0: no limit.
QString reportText(const SearchResult &result, int width);

/// The result for programs. --help describes its shape.
QJsonObject reportJson(const SearchResult &result);

} // namespace JwProbe
