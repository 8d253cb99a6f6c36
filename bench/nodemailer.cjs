// Sends one message by Nodemailer: {"transport", "mail"} as JSON on stdin; an error is told in one line.
// The folder with its node_modules is the environment's NODEMAILER, or the current one.
const found = { paths: [process.env.NODEMAILER || "."] };
if (process.argv[2] === "--version") {
    console.log("Nodemailer " + require(require.resolve("nodemailer/package.json", found)).version);
} else {
    console.warn = () => {};  // a network of loopback alone is no failure
    const { transport, mail } = JSON.parse(require("fs").readFileSync(0, "utf8"));
    require(require.resolve("nodemailer", found)).createTransport(transport).sendMail(mail).catch((error) => {
        console.error(`${error.code}: ${error.message}`);
        process.exitCode = 1;
    });
}
