#pragma once

#include "communicatorwatch.h"

#include <memory>

/// The base class of the Communicator's tests. Each test function gets a new Communicator on a new device, a record of
/// the Communicator's signals, a log of every level, and an empty receive buffer.
class CommunicatorFixture : public QObject
{
    Q_OBJECT

protected:
    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<ScriptedDevice> m_device;
    std::unique_ptr<JwDevice::Communicator> m_communicator;
    std::unique_ptr<SignalRecord> m_emissions;

private Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<LogCapture>();
        drainReceiveBuffer();
        takeLog(*m_log);
        m_device = std::make_unique<ScriptedDevice>();
        m_communicator = std::make_unique<JwDevice::Communicator>();
        m_communicator->setIODevice(m_device.get());
        m_emissions = std::make_unique<SignalRecord>(m_communicator.get());
    }
    void cleanup()
    {
        m_communicator.reset();
        m_emissions.reset();
        m_device.reset();
        m_log.reset();
    }
};
