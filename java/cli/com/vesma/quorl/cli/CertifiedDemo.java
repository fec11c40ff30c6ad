package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Locale;
import java.util.stream.Stream;

/** The daemon and the processes of the certified demo, and the one that kills. */
final class CertifiedDemo {
    private static final int MAX_PAYLOAD = 1 << 20;

    /** How long what was sent last may take. */
    private static final double DRAIN_SECONDS = 120;

    private final PrintWriter out;
    private final double seconds;
    private final double killEvery;
    private final double rate;
    private final Path folder;
    private int kills;

    CertifiedDemo(PrintWriter out, double seconds, double killEvery, double rate) throws IOException {
        this.out = out;
        this.seconds = seconds;
        this.killEvery = killEvery;
        this.rate = rate;
        folder = Files.createTempDirectory("quorl-demo");
    }

    /** Whether nothing was lost, nothing came twice, and all is confirmed; Failure says what was. */
    boolean run() throws InterruptedException, IOException {
        try (Interruption interruption = new Interruption(0)) {
            try {
                runProcesses();
            } catch (InterruptedException e) {
                if (!interruption.requested()) throw e;
                return false;
            } finally {
                deleteFolder();
            }
        }
        return true;
    }

    private void runProcesses() throws InterruptedException, IOException {
        Path program = NatsServer.find();
        if (program == null) throw new Failure("there is no nats-server on this machine; 'apt-get install nats-server' brings one");
        List<Process> running = new ArrayList<>();
        try (NatsServer server = NatsServer.start(program, DaemonCommand.freePort(), MAX_PAYLOAD)) {
            Process sender = start("sender", server.address());
            running.add(sender);
            Process receiver = start("receiver", server.address());
            running.add(receiver);
            long begin = System.nanoTime();
            long nextKill = begin + (long) (killEvery * 1e9);
            long nextLine = begin + 1_000_000_000L;
            long end = begin + (long) (seconds * 1e9);
            for (long now = begin; now < end; now = System.nanoTime()) {
                if (now >= nextKill) {
                    running.remove(receiver);
                    receiver.destroyForcibly().waitFor();
                    kills++;
                    receiver = start("receiver", server.address());
                    running.add(receiver);
                    nextKill = now + (long) (killEvery * 1e9);
                }
                if (now >= nextLine) {
                    tell(now - begin);
                    nextLine += 1_000_000_000L;
                }
                if (!sender.isAlive()) throw new Failure("the sender has ended, with exit code " + sender.exitValue());
                Thread.sleep(Math.max(1, (Math.min(end, Math.min(nextKill, nextLine)) - System.nanoTime()) / 1_000_000));
            }
            try (OutputStream enough = sender.getOutputStream()) {
                enough.write('\n');
                enough.flush();
                drain(begin);
            }
        } finally {
            for (Process each : running) each.destroyForcibly().waitFor();
        }
        DeliveryCheck check = check();
        check.table(kills).forEach(out::println);
        out.flush();
        if (check.complaint() != null) throw new Failure(check.complaint());
    }

    /** Waits for what is not confirmed, and nobody is killed any more. */
    private void drain(long begin) throws InterruptedException, IOException {
        long end = System.nanoTime() + (long) (DRAIN_SECONDS * 1e9);
        while (!check().complete() && System.nanoTime() < end) Thread.sleep(100);
        tell(System.nanoTime() - begin);
    }

    private void tell(long time) throws IOException {
        DeliveryCheck check = check();
        out.println(String.format(Locale.ROOT, "%5.1f s  %d accepted, %d delivered, %d confirmed; receiver killed %d time%s", time / 1e9,
                check.accepted(), check.delivered(), check.confirmed(), kills, kills == 1 ? "" : "s"));
        out.flush();
    }

    private DeliveryCheck check() throws IOException {
        DeliveryCheck check = new DeliveryCheck();
        check.sender(lines("sender.notes"));
        check.receiver(lines("receiver.notes"));
        return check;
    }

    /** The whole ones. */
    private List<String> lines(String file) throws IOException {
        Path path = folder.resolve(file);
        if (!Files.exists(path)) return List.of();
        String text = Files.readString(path);
        return text.substring(0, text.lastIndexOf('\n') + 1).lines().toList();
    }

    private Process start(String role, String address) throws IOException {
        List<String> command = ownCommand();
        command.addAll(List.of("cm", "demo", "--role", role, "--folder", folder.toString(), "--daemon", address, "--rate", Double.toString(rate)));
        return new ProcessBuilder(command).redirectOutput(ProcessBuilder.Redirect.DISCARD).redirectError(ProcessBuilder.Redirect.INHERIT).start();
    }

    /** How this command was started, up to its own arguments. */
    private static List<String> ownCommand() throws IOException {
        List<String> words = Arrays.asList(Files.readString(Path.of("/proc/self/cmdline")).split("\0"));
        String main = Main.class.getName();
        for (int i = 1; i < words.size(); i++) {
            if (!words.get(i).equals(main) && !words.get(i).endsWith("/" + main)) continue;
            List<String> own = new ArrayList<>(words.subList(0, i + 1));
            own.set(0, ProcessHandle.current().info().command().orElse(words.get(0)));
            return own;
        }
        throw new Failure("this command cannot be started again from within " + words.get(0));
    }

    private void deleteFolder() throws IOException {
        List<Path> files;
        try (Stream<Path> all = Files.walk(folder)) {
            files = all.sorted(Comparator.reverseOrder()).toList();
        }
        for (Path file : files) Files.deleteIfExists(file);
    }
}
