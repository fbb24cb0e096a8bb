using System.Reflection;
using System.Runtime.CompilerServices;

[assembly: AssemblyTitle("Zanth.Net")]
[assembly: AssemblyDescription("C# binding of libzanth, the host-side library of the Zanth door controllers")]
// The tests reach the checks and the dispatcher directly.
[assembly: InternalsVisibleTo("Zanth.Net.Tests")]
