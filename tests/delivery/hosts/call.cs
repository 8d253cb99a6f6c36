// Calls every function of the C# class.
using EmailSending;

static class Host
{
    static void Main()
    {
        // CALLS
        System.Console.WriteLine(Email.getLastError());
    }
}
