// Publishes messages with libmosquitto alone, as fast as it can: the comparison for benchmarks/bridge.py.
// Usage: publishloop PORT MESSAGES
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int window = 200; // messages that may wait for an acknowledgement, as in jwbridge

struct Progress
{
    int sent = 0;
    int acknowledged = 0;
    bool isConnected = false;
};

void publish(mosquitto *client, int number)
{
    const std::string payload = "$PJWVER,7300022,1,4,0*0d";
    mosquitto_property *properties = nullptr;
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "time", "1700000000000000");
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, "seq", std::to_string(number).c_str());
    mosquitto_publish_v5(client, nullptr, "jw/here/boards/S1:1.0/rx", static_cast<int>(payload.size()), payload.data(),
                         1, false, properties);
    mosquitto_property_free_all(&properties);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "Usage: publishloop PORT MESSAGES\n");
        return 2;
    }
    const int messages = std::atoi(argv[2]);
    mosquitto_lib_init();
    Progress progress;
    mosquitto *const client = mosquitto_new("publishloop", true, &progress);
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_v5_callback_set(client, [](mosquitto *, void *self, int, int, const mosquitto_property *) {
        static_cast<Progress *>(self)->isConnected = true;
    });
    mosquitto_publish_v5_callback_set(client, [](mosquitto *, void *self, int, int, const mosquitto_property *) {
        ++static_cast<Progress *>(self)->acknowledged;
    });
    if (mosquitto_connect(client, "127.0.0.1", std::atoi(argv[1]), 60) != MOSQ_ERR_SUCCESS) {
        std::fprintf(stderr, "publishloop: no broker on port %s\n", argv[1]);
        return 1;
    }
    while (progress.acknowledged < messages) {
        while (progress.isConnected && progress.sent < messages && progress.sent - progress.acknowledged < window)
            publish(client, ++progress.sent);
        if (mosquitto_loop(client, 1000, 1) != MOSQ_ERR_SUCCESS) {
            std::fprintf(stderr, "publishloop: the connection is lost\n");
            return 1;
        }
    }
    mosquitto_destroy(client);
    mosquitto_lib_cleanup();
    return 0;
}
