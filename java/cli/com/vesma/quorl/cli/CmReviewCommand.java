package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlCmSubject;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlQrdTransport;
import java.io.PrintWriter;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.util.Iterator;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.Spec;

/** quorl cm review: prints what a ledger keeps. */
@Command(name = "review", description = {"Prints what a ledger keeps for each subject, and who has confirmed how much.",
        "The program whose ledger it is must not run: a ledger has one owner."},
        footer = {"", "Examples:", "  quorl cm review --name orders --ledger orders.ledger",
                "  quorl cm review 'orders.>' --name orders --ledger orders.ledger --json"})
final class CmReviewCommand implements Callable<Integer> {
    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Parameters(arity = "0..1", paramLabel = "SUBJECT", description = "a subject or pattern; without it all")
    String subject;

    @Option(names = "--name", paramLabel = "NAME", required = true, description = "the name whose ledger it is")
    String name;

    @Option(names = "--ledger", paramLabel = "FILE", required = true, description = "the ledger")
    String ledger;

    @Option(names = "--json", description = "print each subject as a JSON object in one line")
    boolean json;

    @Override
    @SuppressWarnings("try") // the library is only held open
    public Integer call() {
        if (subject != null) {
            String why = Subjects.whyNotListenable(subject);
            if (why != null) throw new ParameterException(spec.commandLine(), "subject \"" + subject + "\": " + why);
        }
        // One that is not there is not to be made.
        if (!Files.exists(Path.of(ledger))) throw new Failure("there is no ledger " + Texts.quoted(ledger));
        PrintWriter out = spec.commandLine().getOut();
        // On the bus of this process, where nobody hears what the ledger would send.
        try (Quorl library = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport("");
                QuorlCmTransport certified = QuorlCmTransport.builder(transport).name(name).ledger(Path.of(ledger)).open()) {
            for (Iterator<QuorlCmSubject> each = certified.review(subject).iterator(); each.hasNext();) {
                out.print(json ? json(each.next()) + "\n" : text(each.next()));
                if (out.checkError()) throw new OutputClosed();
            }
        } catch (QuorlException e) {
            throw new Failure(ledger + ": " + e.getMessage());
        }
        return Main.OK;
    }

    /** A line for the subject and one for each listener. */
    static String text(QuorlCmSubject subject) {
        StringBuilder text = new StringBuilder(subject.subject()).append(": ");
        if (subject.messages() == 0) {
            text.append("nothing is kept of ").append(subject.last());
        } else {
            text.append(subject.messages()).append(subject.messages() == 1 ? " message" : " messages").append(" of ")
                    .append(subject.bytes()).append(" bytes kept, from ").append(subject.first()).append(" to ").append(subject.last());
        }
        text.append('\n');
        for (QuorlCmSubject.Listener listener : subject.listeners()) {
            text.append("  ").append(listener.name()).append(": confirmed up to ").append(listener.confirmedUpTo()).append(", lacks ")
                    .append(listener.unconfirmed()).append(listener.registered() ? "" : ", added and not yet registered")
                    .append(listener.heard() == null ? "" : ", last heard " + listener.heard()).append('\n');
        }
        return text.toString();
    }

    static String json(QuorlCmSubject subject) {
        StringBuilder out = new StringBuilder("{\"subject\":");
        Json.string(out, subject.subject());
        out.append(",\"first\":").append(subject.first()).append(",\"last\":").append(subject.last()).append(",\"messages\":")
                .append(subject.messages()).append(",\"bytes\":").append(subject.bytes()).append(",\"listeners\":[");
        String between = "";
        for (QuorlCmSubject.Listener listener : subject.listeners()) {
            Json.string(out.append(between).append("{\"name\":"), listener.name());
            out.append(",\"confirmed_up_to\":").append(listener.confirmedUpTo()).append(",\"unconfirmed\":").append(listener.unconfirmed());
            Instant heard = listener.heard();
            if (heard != null) out.append(",\"heard\":\"").append(heard).append('"');
            out.append(",\"registered\":").append(listener.registered()).append('}');
            between = ",";
        }
        return out.append("]}").toString();
    }
}
