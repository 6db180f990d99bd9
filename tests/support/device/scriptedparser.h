#pragma once

#include <device/ipayloadparser.h>

#include <QString>

#include <functional>

/// A parser that calls functions of the test. So it can do things that the library's own parser never does.
class ScriptedParser : public JwDevice::IPayloadParser
{
public:
    std::function<bool(JwDevice::SessionAbstract *, const QString &)> onParse;
    std::function<bool(const JwDevice::SessionAbstract *, QString &)> onBuild;

    bool parse(JwDevice::SessionAbstract *session, const QString &sentence) override
    {
        return onParse(session, sentence);
    }
    bool build(const JwDevice::SessionAbstract *session, QString &sentence) override
    {
        return onBuild(session, sentence);
    }
};
