// swift-tools-version:5.5
import PackageDescription

// The C API as a module: `import CZRAnalytics`. pkg-config finds the installed library.
let package = Package(
  name: "CZRAnalytics",
  products: [.library(name: "CZRAnalytics", targets: ["CZRAnalytics"])],
  targets: [.systemLibrary(name: "CZRAnalytics", pkgConfig: "zranalytics-c")]
)
