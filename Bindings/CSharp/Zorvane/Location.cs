using System;

namespace Zorvane
{
    /// <summary>A place on the earth, in degrees.</summary>
    public struct Location : IEquatable<Location>
    {
        /// <summary>Makes a location.</summary>
        public Location(double latitude, double longitude)
        {
            Latitude = latitude;
            Longitude = longitude;
        }

        /// <summary>Degrees.</summary>
        public double Latitude { get; }

        /// <summary>Degrees.</summary>
        public double Longitude { get; }

        /// <inheritdoc/>
        public bool Equals(Location other) => Latitude.Equals(other.Latitude) && Longitude.Equals(other.Longitude);

        /// <inheritdoc/>
        public override bool Equals(object other) => other is Location location && Equals(location);

        /// <inheritdoc/>
        public override int GetHashCode() => Latitude.GetHashCode() * 31 + Longitude.GetHashCode();
    }
}
