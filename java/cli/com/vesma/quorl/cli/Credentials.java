package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlSdContext;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Locale;

/** Hands the files that the options name to the library. They hold for the process, until the library is closed. */
final class Credentials {
    private Credentials() {}

    /** Sets what is named; what is not stays as it is. Failure when a file cannot be used. */
    static void use(TransportOptions options) {
        if (options.passwordFile != null && options.user == null && options.identity == null) {
            throw new Failure("--password-file is for --user or --identity");
        }
        if (options.user != null && options.passwordFile == null) throw new Failure("--user needs --password-file");
        // Not closed: the context would take away what the transport may need again.
        QuorlSdContext context = new QuorlSdContext();
        if (options.trust != null) {
            set("--trust", options.trust, () -> context.setDaemonCert(null, text(options.trust)));
        }
        char[] password = options.passwordFile == null ? null : firstLine(options.passwordFile);
        try {
            if (options.identity != null) {
                char[] keyPassword = options.user == null ? password : null;
                set("--identity", options.identity, () -> setIdentity(context, options.identity, keyPassword));
            }
            if (options.user != null) {
                set("--user", options.user, () -> context.setUserNameWithPassword(options.user, password));
            }
        } finally {
            if (password != null) Arrays.fill(password, '\0');
        }
    }

    private static void set(String option, String value, Runnable action) {
        try {
            action.run();
        } catch (QuorlException | IllegalArgumentException e) {
            throw new Failure(option + " " + value + ": " + e.getMessage());
        }
    }

    private static void setIdentity(QuorlSdContext context, String file, char[] password) {
        byte[] bytes = bytes(file);
        try {
            if (isBinary(file)) {
                context.setUserCertWithKeyBin(bytes, password);
            } else {
                context.setUserCertWithKey(bytes, password);
            }
        } finally {
            Arrays.fill(bytes, (byte) 0);
        }
    }

    /** Whether a file is PKCS #12, by its name. */
    static boolean isBinary(String file) {
        String name = file.toLowerCase(Locale.ROOT);
        return name.endsWith(".p12") || name.endsWith(".pfx");
    }

    private static String text(String file) {
        return new String(bytes(file), StandardCharsets.ISO_8859_1);
    }

    static char[] firstLine(String file) {
        byte[] bytes = bytes(file);
        int end = 0;
        while (end < bytes.length && bytes[end] != '\n' && bytes[end] != '\r') end++;
        char[] line = new String(bytes, 0, end, StandardCharsets.UTF_8).toCharArray();
        Arrays.fill(bytes, (byte) 0);
        return line;
    }

    static byte[] bytes(String file) {
        try {
            return Files.readAllBytes(Path.of(file));
        } catch (NoSuchFileException e) {
            throw new Failure("there is no file \"" + file + "\"");
        } catch (IOException e) {
            throw new Failure("cannot read \"" + file + "\": " + TextSource.why(e));
        }
    }
}
