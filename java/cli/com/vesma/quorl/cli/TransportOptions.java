package com.vesma.quorl.cli;

import picocli.CommandLine.Option;

/** The options that choose a bus, the same for every command. */
final class TransportOptions {
    @Option(names = "--daemon", paramLabel = "ADDRESS",
            description = "the daemon that carries messages between processes; without it messages stay in this process")
    String daemon;

    @Option(names = "--service", paramLabel = "NAME", description = "only programs with the same service meet")
    String service;

    @Option(names = "--network", paramLabel = "NAME", description = "only programs with the same network meet")
    String network;

    /** Fills what was not given from other options. */
    void defaultTo(TransportOptions defaults) {
        if (daemon == null) daemon = defaults.daemon;
        if (service == null) service = defaults.service;
        if (network == null) network = defaults.network;
    }
}
