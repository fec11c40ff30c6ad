package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import java.nio.file.Path;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.UUID;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.Spec;

/** quorl doctor: looks at what messaging needs, and says what to do about what is missing. */
@Command(name = "doctor", description = {"Looks at the library, the daemon, the credentials and their versions, and says what "
        + "to do about what is wrong.", "The exit code is 1 when something is."},
        footer = {"", "Examples:", "  quorl doctor", "  quorl doctor --daemon nats://127.0.0.1:4222"})
final class DoctorCommand implements Callable<Integer> {
    private static final Duration PATIENCE = Duration.ofSeconds(5);

    /** How a daemon's words about a permission begin. */
    private static final String VIOLATION = "Permissions Violation";

    /** What the library says of a server that takes nobody without TLS, and of a server's certificate that does not count. */
    private static final String DEMANDS_TLS = "demands TLS";
    private static final String REFUSED_CERTIFICATE = "the daemon's certificate is not accepted";

    private static final String WRITE_TLS = "begin its address with tls://, and give with --trust the certificate of the "
            + "authority that signed the daemon's, unless that is a public one";

    private static final String RAISE_SUBSCRIPTIONS = "raise max_subscriptions in the server's configuration: each connection "
            + "takes two, and one for each subject that it listens to";

    @Spec
    CommandSpec spec;

    @Mixin
    TransportOptions transport;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Option(names = "--json", description = "print each finding as a JSON object in one line")
    boolean json;

    /** How a thing is. */
    enum State {
        OK, NOTE, WRONG
    }

    /** advice: what to do; null when there is nothing to do. */
    record Finding(State state, String about, String text, String advice) {}

    private final List<Finding> findings = new ArrayList<>();

    @Override
    public Integer call() throws InterruptedException {
        lookAtJava();
        if (lookAtLibrary()) {
            lookAtJson();
            lookAtBus();
            if (lookAtCredentials()) lookAtDaemon();
        }
        lookAtServer();
        findings.forEach(this::print);
        spec.commandLine().getOut().flush();
        return findings.stream().anyMatch(finding -> finding.state == State.WRONG) ? Main.FAILED : Main.OK;
    }

    private void ok(String about, String text) {
        findings.add(new Finding(State.OK, about, text, null));
    }

    private void wrong(String about, String text, String advice) {
        findings.add(new Finding(State.WRONG, about, text, advice));
    }

    private void note(String about, String text, String advice) {
        findings.add(new Finding(State.NOTE, about, text, advice));
    }

    private void lookAtJava() {
        ok("java", Runtime.version() + " on " + System.getProperty("os.name") + " " + System.getProperty("os.arch"));
    }

    private boolean lookAtLibrary() {
        String set = System.getProperty("com.vesma.quorl.library");
        try {
            ok("library", "version " + Quorl.getVersion() + (set == null ? "" : ", from " + set));
            return true;
        } catch (RuntimeException | LinkageError e) {
            wrong("library", Main.oneLine(e), "name the folder of libquorlnativesd.so and the libraries beside it, all of one "
                    + "version, with -Dcom.vesma.quorl.library=FOLDER");
            return false;
        }
    }

    private void lookAtJson() {
        try {
            QuorlMsg.fromJson("{}").close();
            ok("json", "messages can be written and read as JSON");
        } catch (IllegalStateException e) {
            note("json", "Gson is not installed, so --json does not work",
                    "'apt-get install libgoogle-gson-java' brings it");
        }
    }

    /** Looks at the files, whether there is a daemon or not; false when they cannot be used. */
    @SuppressWarnings("try")
    private boolean lookAtCredentials() {
        boolean given = transport.trust != null || transport.identity != null || transport.user != null
                || transport.passwordFile != null;
        if (!given) return true;
        try (Quorl quorl = Quorl.open()) {
            Credentials.use(transport);
        } catch (Failure e) {
            wrong("credentials", e.getMessage(), "certificates and keys are PEM, or PKCS #12 in a file named .p12; "
                    + "'openssl x509 -in FILE -text -noout' shows one. --password-file FILE holds the password in its first line");
            return false;
        }
        ok("credentials", "they can be read and belong together");
        Certificates.look(transport).forEach(findings::add);
        return true;
    }

    @SuppressWarnings("try")
    private void lookAtBus() throws InterruptedException {
        try (Quorl quorl = Quorl.open(); QuorlQrdTransport bus = new QuorlQrdTransport(null, null, "")) {
            if (comesBack(bus)) {
                ok("bus", "messages pass inside this process");
            } else {
                wrong("bus", "a message inside this process did not arrive", "report this with the output of 'quorl stats'");
            }
        } catch (QuorlException e) {
            wrong("bus", e.getMessage(), "is a limit of threads or memory reached? 'ulimit -a' lists them");
        }
    }

    private void lookAtDaemon() throws InterruptedException {
        String daemon = transport.daemon;
        if (daemon == null || daemon.isEmpty()) {
            note("daemon", "none is named, so messages stay inside a process",
                    "'quorl daemon' starts one; look at it with 'quorl doctor --daemon nats://127.0.0.1:4222'");
            return;
        }
        List<DaemonAddress> servers;
        try {
            servers = DaemonAddress.parse(daemon);
        } catch (Failure e) {
            wrong("daemon", e.getMessage(), "an address is written nats://HOST:PORT, or tls://HOST:PORT for a secured daemon; "
                    + "commas stand between those of a cluster");
            return;
        }
        lookAtForms(servers);
        DaemonGreeting greeting = null;
        DaemonAddress answering = null;
        List<Failure> silent = new ArrayList<>();
        for (DaemonAddress server : servers) {
            try {
                DaemonGreeting heard = hear(server, servers.size() > 1);
                if (greeting == null) {
                    greeting = heard;
                    answering = server;
                }
            } catch (Failure e) {
                silent.add(e);
            }
        }
        // Programs go on with those of a cluster that are left.
        for (Failure why : silent) {
            findings.add(new Finding(greeting == null ? State.WRONG : State.NOTE, "daemon", why.getMessage(),
                    why instanceof DaemonGreeting.NoDaemon ? "another program has this port: is the port right?"
                            : "is it running, and are host and port right? 'quorl daemon' starts one on this machine; between "
                                    + "machines a firewall may be in the way"));
        }
        if (greeting == null) return;
        if (greeting.wantsTls() && !answering.tls()) {
            note("credentials", "the daemon wants TLS", WRITE_TLS);
        }
        if (greeting.wantsCertificate() && transport.identity == null) {
            note("credentials", "the daemon wants a certificate of whoever connects", "give --identity FILE");
        }
        if (greeting.wantsCredentials() && transport.user == null && transport.identity == null) {
            note("credentials", "the daemon wants to know who connects", "give --user with --password-file, or --identity");
        }
        connect();
    }

    /** A failover from a server with TLS to one without leads into the clear. */
    private void lookAtForms(List<DaemonAddress> servers) {
        List<String> clear = servers.stream().filter(server -> !server.tls()).map(DaemonAddress::url).toList();
        if (clear.isEmpty() || clear.size() == servers.size()) return;
        note("daemon", "the address mixes tls:// and nats://: with " + String.join(" and ", clear) + " programs talk in the clear",
                "write tls:// before the first server; those behind it without a scheme follow");
    }

    /** What one server says; Failure when it says nothing. */
    private DaemonGreeting hear(DaemonAddress server, boolean oneOfSeveral) {
        DaemonGreeting greeting = DaemonGreeting.hear(server);
        ok("daemon", (oneOfSeveral ? server.url() + ": " : "") + "version " + greeting.version() + ", messages of "
                + greeting.maxPayload() + " bytes in one piece" + (greeting.wantsTls() ? ", wants TLS" : "")
                + (greeting.wantsCredentials() ? ", wants credentials" : ""));
        if (server.tls() && greeting.wantsTls()) {
            Certificates.expiry(findings, server.url(), DaemonCertificate.of(server), Instant.now());
        }
        return greeting;
    }

    @SuppressWarnings("try")
    private void connect() throws InterruptedException {
        try (Quorl quorl = Quorl.open()) {
            Credentials.use(transport);
            long start = System.nanoTime();
            try (QuorlQrdTransport through =
                    new QuorlQrdTransport(transport.service, transport.network, transport.daemon)) {
                if (comesBack(through)) {
                    ok("connection", String.format(Locale.ROOT, "a message came back after %.1f ms, connecting included",
                            (System.nanoTime() - start) / 1e6));
                } else {
                    wrong("connection", "a message did not come back within " + PATIENCE.toSeconds() + " s",
                            "is the daemon overloaded, or stopped? what stands below about permissions may be the reason");
                }
                lookAtPermissions(through);
            }
        } catch (QuorlException e) {
            if (e.getMessage().contains(VIOLATION)) {
                String words = e.getMessage().substring(e.getMessage().indexOf(VIOLATION));
                wrong("permissions", "this user may not " + (words.contains("Publish") ? "publish" : "subscribe")
                        + " what the library itself needs on this service and network; the daemon says: " + words,
                        adviceOnPermissions(words));
            } else {
                wrong("connection", e.getMessage(), e.getMessage().contains("maximum subscriptions")
                        ? RAISE_SUBSCRIPTIONS : adviceFor(e));
            }
        }
    }

    /** Sends and listens on the bus as a program would. */
    private void lookAtPermissions(QuorlQrdTransport through) throws InterruptedException {
        PermissionProbe probe = PermissionProbe.of(through, "quorl-doctor." + UUID.randomUUID(), PATIENCE);
        if (probe.worked()) {
            ok("permissions", "this user may publish and subscribe on this service and network; single subjects may be forbidden");
        } else if (probe.missing() == null) {
            wrong("permissions", "a message to a subject of this bus did not come back within " + PATIENCE.toSeconds() + " s",
                    "is the daemon overloaded, or stopped?");
        } else {
            wrong("permissions", "this user may not " + probe.missing() + " on this service and network; the daemon says: "
                    + probe.words(), probe.words().contains("maximum subscriptions")
                    ? RAISE_SUBSCRIPTIONS : adviceOnPermissions(probe.words()));
        }
    }

    private static String adviceOnPermissions(String words) {
        return "in the server's configuration, give the user " + PermissionProbe.permissions(words)
                + " and deny nothing that the bus needs; then 'nats-server --signal reload=PID', with the server's process id";
    }

    private String adviceFor(QuorlException e) {
        return switch (e.getStatus()) {
            case QuorlException.SERVICE_NOT_FOUND, QuorlException.NETWORK_NOT_FOUND ->
                "names of services and networks are printable ASCII without blanks, at most 63 bytes";
            case QuorlException.USERPASS_MISMATCH -> "check --user, --password-file and --identity against the daemon's users";
            default -> adviceOnConnecting(e.getMessage());
        };
    }

    private String adviceOnConnecting(String words) {
        if (words.contains(DEMANDS_TLS)) return WRITE_TLS;
        if (!words.contains(REFUSED_CERTIFICATE)) return "are host and port right, and do all servers of the address run?";
        if (transport.trust == null) {
            return "give with --trust FILE the certificate of the authority that signed the daemon's (of a daemon's that signed "
                    + "itself, its own); without --trust only authorities that this machine trusts count";
        }
        return "does --trust hold the certificate of the authority that signed the daemon's certificate (a daemon's that "
                + "signed itself, its own), and does the daemon's name the host as it is written here? 'openssl x509 "
                + "-in FILE -text -noout' shows a file";
    }

    @SuppressWarnings("try")
    private static boolean comesBack(QuorlQrdTransport through) throws InterruptedException {
        boolean[] came = new boolean[1];
        String inbox = through.createInbox();
        try (QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, through, inbox, (l, m) -> came[0] = true);
                QuorlMsg message = new QuorlMsg(inbox)) {
            through.send(message);
            queue.dispatch(PATIENCE);
            return came[0];
        }
    }

    private void lookAtServer() throws InterruptedException {
        Path program = NatsServer.find();
        if (program == null) {
            note("nats-server", "not installed on this machine", "'apt-get install nats-server', if a daemon is to run here");
            return;
        }
        String version = NatsServer.version(program);
        ok("nats-server", program + (version == null ? "" : ", " + version));
    }

    private void print(Finding finding) {
        StringBuilder line = new StringBuilder();
        if (json) {
            line.append("{\"state\":");
            Json.string(line, finding.state.name().toLowerCase(Locale.ROOT));
            line.append(",\"about\":");
            Json.string(line, finding.about);
            line.append(",\"text\":");
            Json.string(line, finding.text);
            if (finding.advice != null) {
                line.append(",\"advice\":");
                Json.string(line, finding.advice);
            }
            line.append('}');
        } else {
            line.append(String.format(Locale.ROOT, "%-6s %-12s %s", finding.state.name().toLowerCase(Locale.ROOT), finding.about,
                    finding.text));
            if (finding.advice != null) line.append(String.format(Locale.ROOT, "%n%20s-> %s", "", finding.advice));
        }
        spec.commandLine().getOut().println(line);
    }
}
