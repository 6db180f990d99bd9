#pragma once

#include <device/initializer.h>
#include <device/porterrors.h>

#include <QSerialPort>

class Lamp : public QObject
{
public:
    Lamp()
    {
        connect(&m_search, &JwDevice::Initializer::deviceInitialized, this, [this](JwDevice::Type, auto *board) {
            m_port = static_cast<QSerialPort *>(board->device());
            m_port->setParent(this);
            board->setParent(m_port);
            connect(new JwDevice::PortErrors(m_port), &JwDevice::PortErrors::portLost, this,
                    [this] { JwDevice::closeAtOnce(m_port); });
        });
        m_search.probe({JwDevice::BoardA});
    }
    bool isOn() const { return m_port && m_port->isOpen(); }

private:
    JwDevice::Initializer m_search;
    QSerialPort *m_port = nullptr; // the board's port, a child of this object; null until the board is found
};
