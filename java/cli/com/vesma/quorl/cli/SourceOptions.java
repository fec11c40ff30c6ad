package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.io.IOException;
import java.io.InputStream;
import java.io.InterruptedIOException;
import java.util.List;
import picocli.CommandLine.Option;

/** The options that say which messages a command sends, how many and how fast; the same for send and request. */
final class SourceOptions {
    @Option(names = "--csv", paramLabel = "FILE",
            description = "a message for each record of a table of typed columns; - is standard input")
    String csv;

    @Option(names = {"-n", "--count"}, paramLabel = "N",
            description = "N messages; without it one, or as many as the table or the JSON has")
    Long count;

    @Option(names = "--rate", paramLabel = "N", description = "N messages a second; without it, as fast as possible")
    Double rate;

    /** What is done with each message; it is closed afterwards. */
    interface Use {
        void accept(QuorlMsg message) throws InterruptedException;
    }

    private String json;
    private Action action;
    private String subject;
    private List<FieldArgument> fields;
    private TextSource text;
    private volatile long done;

    /**
     * Looks at everything that can be looked at before the first message goes out.
     *
     * @param subject null when the table or the JSON names the subjects
     * @param json the file with JSON, or null
     * @param input standard input; null where there is none to read
     */
    void check(Action of, String to, List<FieldArgument> with, String jsonFile, InputStream input) {
        action = of;
        subject = to;
        fields = with;
        json = jsonFile;
        if (count != null) of.checkAtLeast("--count", count, 1);
        if (rate != null && !(rate > 0 && rate < 1e9)) {
            throw of.usage("--rate takes a number above 0, not " + Texts.number(rate));
        }
        if (csv != null && json != null) throw of.usage("messages come from a table or from JSON, not from both");
        // The last number is the largest: what it fits, the numbers between fit too.
        if (count != null) of.checkFields(with, count);
        String file = csv != null ? csv : json;
        if (file == null) return;
        text = new TextSource(file, input);
        if (file.equals("-") && input == null) {
            throw of.usage("- is for the command line; a script names a file");
        }
        // A file can be read twice, so that nothing is sent of one with a mistake; standard input and pipes cannot.
        if (text.isFile()) checkAll();
    }

    private void checkAll() {
        try (MessageSource source = open()) {
            for (QuorlMsg message = source.next(); message != null; message = source.next()) message.close();
        } catch (IllegalArgumentException e) {
            throw action.usage(e.getMessage() + "; nothing was sent");
        } catch (IOException e) {
            throw action.usage(text.unreadable(e).getMessage());
        }
    }

    private MessageSource open() throws IOException {
        if (csv != null) return new CsvMessages(text, subject, fields);
        if (json != null) return new JsonMessages(text, subject, fields);
        long most = count == null ? 1 : count;
        return new MessageSource() {
            private long number;

            @Override
            public QuorlMsg next() {
                return number == most ? null : Messages.create(subject, fields, ++number);
            }

            @Override
            public void close() {}
        };
    }

    /** Uses each message in its turn. */
    void forEach(Use use) throws InterruptedException {
        Pace pace = rate == null ? null : new Pace(rate);
        try (MessageSource source = open()) {
            while (count == null || done < count) {
                if (Thread.interrupted()) throw new InterruptedException();
                QuorlMsg message = source.next();
                if (message == null) break;
                try (message) {
                    if (pace != null) pace.await();
                    use.accept(message);
                }
                done++;
            }
        } catch (IllegalArgumentException | QuorlException | Failure e) {
            boolean one = text == null && (count == null || count == 1);
            throw one ? e : new Failure((e instanceof IllegalArgumentException ? e.getMessage() : Main.describe(e)) + before());
        } catch (InterruptedIOException e) {
            throw new InterruptedException();
        } catch (IOException e) {
            throw new Failure(text.unreadable(e).getMessage() + before());
        }
    }

    private String before() {
        return done == 0 ? "; nothing was sent" : "; " + Texts.were(done, "message") + " sent before it";
    }

    /** Messages that were used so far. */
    long done() {
        return done;
    }
}
