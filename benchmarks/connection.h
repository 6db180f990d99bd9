#pragma once

#include <device/communicator.h>
#include <nmea/parserinit.h>

#include <support/device/streamdevice.h>

/// A Communicator with its device and parser.
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
