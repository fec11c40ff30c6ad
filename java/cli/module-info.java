/** The quorl command. */
module com.vesma.quorl.cli {
    requires com.vesma.quorl;
    requires picocli;

    // picocli sets the options of the commands by reflection.
    opens com.vesma.quorl.cli to picocli;
}
