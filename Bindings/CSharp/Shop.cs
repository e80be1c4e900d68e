using System;
using System.Collections.Generic;
using System.Globalization;
using Zorvane;

/// <summary>A shop that counts the messages which an in-app module would show: Shop.exe ENDPOINT FOLDER.</summary>
internal static class Shop
{
    private const string BigOrder =
        @"{""eventName"": ""Order placed"", ""filters"": [{""name"": ""total"", ""data_type"": ""double"",
           ""operator"": ""greaterThan"", ""value"": 100}]}";

    private static int Main(string[] args)
    {
        int messages = 0;
        var options = new AnalyticsOptions
        {
            Endpoint = args[0], AppId = "SHOP", Folder = args[1], Culture = () => new CultureInfo("de-AT")
        };
        using (var bigOrder = new Condition(BigOrder))
        using (Analytics analytics = Analytics.Start(options))
        {
            analytics.SetTrigger(TriggerSlot.InApp, (name, record) =>
            {
                if (bigOrder.IsSatisfied(name, record)) ++messages;
            });

            analytics.Login("anna");
            analytics.OpenUrl("shop://product/7?utm_source=mail&utm_campaign=winter");
            analytics.Track("Product viewed",
                new Dictionary<string, object> { { "product", "Trail shoe" }, { "position", 1 } });
            using (var order = new Properties())
            {
                order.Add("products", new[] { "Trail shoe", "Socks" }).Add("total", 129.5);
                order.Add("delivery", new DateTimeOffset(2026, 12, 24, 10, 0, 0, TimeSpan.Zero));
                order.Add("store", new Location(48.137154, 11.576124));
                order.Add("receipt", new Uri("https://shop.example/receipt/7"));
                analytics.Track("Order placed", order);
            }
            analytics.EnterBackground();
            analytics.EnterForeground();
            // The end of the block closes the module, too, but does not tell the result.
            bool allSent = analytics.Close(TimeSpan.FromSeconds(10));
            Console.WriteLine("all sent: " + (allSent ? "yes" : "no") + ", messages: " + messages);
            return allSent ? 0 : 2;
        }
    }
}
