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

    @Option(names = "--trust", paramLabel = "FILE",
            description = "certificates (PEM) to trust the daemon by; its address then begins with tls://")
    String trust;

    @Option(names = "--identity", paramLabel = "FILE",
            description = "this program's certificate with its key, PEM or PKCS #12 (.p12, .pfx)")
    String identity;

    @Option(names = "--user", paramLabel = "NAME", description = "a user's name; the password is in --password-file")
    String user;

    @Option(names = "--password-file", paramLabel = "FILE",
            description = "the password of --user, or of --identity without it: the file's first line")
    String passwordFile;

    /** The options as they are written, without secrets. */
    @Override
    public String toString() {
        StringBuilder text = new StringBuilder("transport");
        if (daemon != null) text.append(" --daemon '").append(Texts.withoutCredentials(daemon)).append('\'');
        if (service != null) text.append(" --service '").append(Texts.withoutCredentials(service)).append('\'');
        if (network != null) text.append(" --network '").append(Texts.withoutCredentials(network)).append('\'');
        if (trust != null) text.append(" --trust '").append(trust).append('\'');
        if (identity != null) text.append(" --identity '").append(identity).append('\'');
        if (user != null) text.append(" --user '").append(user).append('\'');
        return text.toString();
    }

    /** Fills what was not given from other options. */
    void defaultTo(TransportOptions defaults) {
        if (daemon == null) daemon = defaults.daemon;
        if (service == null) service = defaults.service;
        if (network == null) network = defaults.network;
        if (trust == null) trust = defaults.trust;
        if (identity == null) identity = defaults.identity;
        if (user == null) user = defaults.user;
        if (passwordFile == null) passwordFile = defaults.passwordFile;
    }
}
