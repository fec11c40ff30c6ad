package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.io.IOException;
import java.io.Reader;
import java.util.List;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * JSON objects, one a line, as messages: {"subject":...,"reply":...,"message":{...}} as "quorl listen --json" writes them, or
 * the message's object alone.
 */
final class JsonMessages implements MessageSource {
    /** What 'quorl cm' adds of the message as it was sent or received. */
    private static final Set<String> OF_CERTIFIED = Set.of("sender", "number", "expires");

    private static final Pattern PLACE = Pattern.compile(" at line [0-9]+ column ([0-9]+)");

    private final Reader in;
    private final String title;
    private final String subject;
    private final List<FieldArgument> more;
    private long line;
    private long number;

    /** subject: where all messages go, or null for what the lines say; more: fields that come after a line's. */
    JsonMessages(TextSource source, String subject, List<FieldArgument> more) throws IOException {
        in = source.open();
        title = source.title();
        this.subject = subject;
        this.more = more;
    }

    @Override
    public QuorlMsg next() throws IOException {
        String text;
        do {
            text = readLine();
            if (text == null) return null;
        } while (text.isBlank());
        List<JsonMembers.Member> members = JsonMembers.of(text);
        boolean wrapped = members != null && members.stream().anyMatch(member -> member.name().equals("message"));
        QuorlMsg message = wrapped ? unwrap(members) : read(text, 0);
        try {
            if (subject != null) {
                message.setSendSubject(subject);
            } else if (message.getSendSubject() == null) {
                throw wrong(0, "there is no \"subject\", and the command line names no SUBJECT");
            }
            Messages.add(message, more, ++number);
            return message;
        } catch (RuntimeException e) {
            message.close();
            throw e;
        }
    }

    private QuorlMsg unwrap(List<JsonMembers.Member> members) {
        QuorlMsg message = null;
        try {
            String to = null;
            String reply = null;
            for (JsonMembers.Member member : members) {
                String text = JsonMembers.unquoted(member.value());
                if (member.name().equals("message") && message == null) {
                    message = read(member.value(), member.valueAt());
                } else if (member.name().equals("subject") && to == null && text != null) {
                    to = sendable(member, text);
                } else if (member.name().equals("reply") && reply == null && text != null) {
                    reply = sendable(member, text);
                } else if (!OF_CERTIFIED.contains(member.name())) {
                    throw wrong(member.at(), "member " + Texts.quoted(member.name())
                            + ": beside \"message\" there may be \"subject\" and \"reply\", once each, with texts");
                }
            }
            if (to != null) message.setSendSubject(to);
            if (reply != null) message.setReplySubject(reply);
            return message;
        } catch (RuntimeException e) {
            if (message != null) message.close();
            throw e;
        }
    }

    private String sendable(JsonMembers.Member member, String text) {
        // What stands on the command line counts.
        if (subject != null && member.name().equals("subject")) return text;
        try {
            return CsvMessages.sendable(member.name().equals("reply") ? "reply subject" : "subject", text);
        } catch (IllegalArgumentException e) {
            throw wrong(member.valueAt(), e.getMessage());
        }
    }

    /** at: where the object begins in its line, from 0. */
    private QuorlMsg read(String json, int at) {
        try {
            return QuorlMsg.fromJson(json);
        } catch (QuorlException e) {
            String why = e.getDetail() == null ? e.getMessage() : e.getDetail();
            Matcher place = PLACE.matcher(why);
            if (place.find()) throw wrong(at + Integer.parseInt(place.group(1)) - 1, place.replaceFirst(""));
            throw wrong(at + firstWrong(json), why);
        }
    }

    /** Where the first member begins that is wrong by itself; 0 when none is. */
    private static int firstWrong(String json) {
        List<JsonMembers.Member> members = JsonMembers.of(json);
        if (members == null) return 0;
        for (JsonMembers.Member member : members) {
            String alone = "{" + json.substring(member.at(), member.valueAt()) + member.value() + "}";
            try {
                QuorlMsg.fromJson(alone).close();
            } catch (QuorlException e) {
                // The second of a name is wrong without the first.
                if (e.getStatus() != QuorlException.INVALID_INSTANCE) return member.at();
            }
        }
        return 0;
    }

    private IllegalArgumentException wrong(int at, String why) {
        return new IllegalArgumentException(title + " line " + line + " column " + (at + 1) + ": " + why);
    }

    /** The next line without its end; null at the end. */
    private String readLine() throws IOException {
        int c = in.read();
        if (line == 0 && c == '\ufeff') c = in.read();
        if (c < 0) return null;
        line++;
        StringBuilder text = new StringBuilder();
        for (; c >= 0 && c != '\n'; c = in.read()) {
            if (TextSource.isWrong(text, c)) throw wrong(text.length(), TextSource.WRONG);
            if (text.length() >= TextSource.LONGEST) throw wrong(text.length(), TextSource.TOO_LONG);
            text.append((char) c);
        }
        return text.toString();
    }

    @Override
    public void close() throws IOException {
        in.close();
    }
}
