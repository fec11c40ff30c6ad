package com.vesma.quorl.internal.setup;

import com.vesma.quorl.QuorlException;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;

/**
 * Says why the library did not take settings. It keeps its own words while it is closed, so this class looks at the settings
 * again. It decides nothing: the library has refused already.
 */
public final class SettingRefusal {
    /** As docs/reference/parameters.md lists them. */
    public static final Set<String> NAMES = Set.of("daemon", "service", "network", "connect.timeout", "reconnect.buffer", "queue.limit",
            "queue.highwater", "dispatch.spin", "circuit.timeout", "advisory.interval",
            "certified.pending", "dqueue.reassignments", "dqueue.leave");

    private static final int LONGEST_SHOWN = 80;

    /** Bytes of a file. */
    private static final long LARGEST = 1 << 20;

    private SettingRefusal() {}

    /** Why these settings were refused with this status; null when nothing is known. */
    public static String ofParameters(int status, String[] settings) {
        if (status != QuorlException.INVALID_ARG) {
            return null;
        }
        List<String> left = new ArrayList<>();
        for (String setting : settings) {
            String fault = faultOf(setting);
            if (fault != null) {
                return fault;
            }
            left.add("\"" + shown(setting) + "\"");
        }
        return left.size() == 1 ? left.get(0) + " has a value that the parameter cannot have"
                : "one of these has a value that the parameter cannot have: " + String.join(", ", left);
    }

    /** Why a file of settings was refused with this status; null when nothing is known. */
    public static String ofFile(int status, Path file) {
        switch (status) {
            case QuorlException.FILE_NOT_FOUND:
                return file + ": there is no such file";
            case QuorlException.IO_FAILED:
                return file + ": " + (Files.isReadable(file) ? "reading it failed" : "this user may not read it");
            case QuorlException.ARG_CONFLICT:
                return file + ": it sets a parameter to another value than the one that holds, set before or by an earlier open";
            case QuorlException.INVALID_FILE:
                return file + faultIn(file);
            default:
                return null;
        }
    }

    private static String faultIn(Path file) {
        if (!Files.isRegularFile(file)) {
            return ": " + (Files.isDirectory(file) ? "a directory" : "a pipe, a device or a socket") + "; give a regular file";
        }
        String otherwise = ": a line holds a value that its parameter cannot have, or is too long";
        try {
            if (Files.size(file) > LARGEST) {
                return ": a parameter file has at most " + LARGEST + " bytes";
            }
            String[] lines = Files.readString(file, StandardCharsets.ISO_8859_1).split("\n", -1);
            for (int i = 0; i < lines.length; i++) {
                int comment = lines[i].indexOf('#');
                String setting = (comment < 0 ? lines[i] : lines[i].substring(0, comment)).strip();
                String fault = setting.isEmpty() ? null : faultOf(setting);
                if (fault != null) {
                    return " line " + (i + 1) + ": " + fault;
                }
            }
            return otherwise;
        } catch (IOException e) {
            return otherwise;
        }
    }

    /** What is wrong with the form or the name of a setting, null when they are right. */
    private static String faultOf(String setting) {
        int equals = setting.indexOf('=');
        String name = equals < 0 ? "" : setting.substring(0, equals).strip();
        if (name.isEmpty()) {
            return "\"" + shown(setting) + "\" is not of the form name=value";
        }
        return NAMES.contains(name) ? null : "no parameter has the name \"" + shown(name) + "\"";
    }

    /** Not much of a text, and no credentials, which end with '@' in an address where they do not belong. */
    private static String shown(String text) {
        String rest = text.substring(text.lastIndexOf('@') + 1);
        return rest.length() <= LONGEST_SHOWN ? rest : rest.substring(0, LONGEST_SHOWN);
    }
}
