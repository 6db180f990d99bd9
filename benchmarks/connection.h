#pragma once

#include <device/communicator.h>
#include <nmea/parserinit.h>

#include <support/device/streamdevice.h>

/// A Communicator with a parser, and with a device that is only in memory.
struct Connection
{
    Connection()
    {
        parser.init();
        communicator.setParser(&parser);
        communicator.setIODevice(&device);
    }

    StreamDevice device;
    Nmea::ParserInit parser;
    JwDevice::Communicator communicator;
};
