package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;

/** Takes the demo's messages: checks their numbers and puts their figures into the table. */
final class MachineListener {
    private final SequenceCheck check;
    private final MachineTable table;

    MachineListener(SequenceCheck check, MachineTable table) {
        this.check = check;
        this.table = table;
    }

    void received(QuorlMsg message) {
        String subject = message.getSendSubject();
        // machine.HOST.KIND[.NAME]
        String[] elements = subject.split("\\.");
        switch (elements.length > 2 ? elements[2] : "") {
            case "cpu" -> table.cpu(message.getU32("core"), message.getF64("busy_percent"));
            case "memory" -> table.memory(new ProcReader.Memory(message.getU64("total"), message.getU64("free"),
                    message.getU64("available"), message.getU64("swap_total"), message.getU64("swap_free")));
            case "load" -> table.load(new ProcReader.Load(message.getF64("one"), message.getF64("five"),
                    message.getF64("fifteen"), (int) message.getU32("running"), (int) message.getU32("tasks")));
            case "net" -> table.traffic(message.getString("name"), message.getF64("in_per_second"),
                    message.getF64("out_per_second"), message.getU64("in"), message.getU64("out"));
            default -> {
                // Somebody else's message on a machine subject: not this demo's.
                return;
            }
        }
        check.received(subject, message.getU64("sequence"));
    }
}
