package com.vesma.quorl.cli;

import picocli.CommandLine.Option;

/** The options that choose a bus, the same for every command. */
final class TransportOptions {
    @Option(names = "--daemon", paramLabel = "ADDRESS",
            description = "a daemon that carries messages between processes; without it they stay in this process")
    String daemon;

    @Option(names = "--service", paramLabel = "NAME", description = "only programs with the same service meet")
    String service;

    @Option(names = "--network", paramLabel = "NAME", description = "only programs with the same network meet")
    String network;

    /** The options as they are written. */
    @Override
    public String toString() {
        StringBuilder text = new StringBuilder("transport");
        if (daemon != null) text.append(" --daemon '").append(daemon).append('\'');
        if (service != null) text.append(" --service '").append(service).append('\'');
        if (network != null) text.append(" --network '").append(network).append('\'');
        return text.toString();
    }

    /** Fills what was not given from other options. */
    void defaultTo(TransportOptions defaults) {
        if (daemon == null) daemon = defaults.daemon;
        if (service == null) service = defaults.service;
        if (network == null) network = defaults.network;
    }
}
