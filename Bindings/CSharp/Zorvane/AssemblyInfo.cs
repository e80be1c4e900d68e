using System.Runtime.CompilerServices;

[assembly: InternalsVisibleTo("ZRAnalytics.Tests")]
