#pragma once

#include <cstddef>

constexpr char versionReply[] = "$PJWVER,7300021,1,4,0*0e\r\n";
constexpr std::size_t versionReplySize = sizeof versionReply - 1;
constexpr char informationReply[] = "$PTJWRD,INF,CTRL,3,17,2,1.04,7300022,1*5e\r\n";
constexpr char informationRequest[] = "$PTJWWR,INF*71\r\n";
constexpr char versionQuery[] = "$PJWVER*0c\r\n";
